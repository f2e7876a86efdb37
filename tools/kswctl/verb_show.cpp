// Everything about one item, for people as the framework dumps it.
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tools/common/terminal.h"
#include "tools/common/text.h"
#include "tools/kswctl/items.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

/// Where the values stand in what the framework dumps.
constexpr std::size_t kValueColumn = 23;

using Text = std::optional<std::string>;
using Texts = std::optional<std::vector<std::string>>;

Text escaped(const Text& text) {
    return text ? Text(printable(*text)) : std::nullopt;
}

Texts escaped(Texts texts) {
    if (texts) {
        for (std::string& text : *texts) {
            text = printable(text);
        }
    }
    return texts;
}

/// A copy of a relative that the dump names by its identifier alone.
KSWItem::Pointer escapedRelative(const KSWItem& item) {
    KSWItem::Pointer copy = item.copy();
    copy->setIdentifier(escaped(item.identifier()));
    return copy;
}

/// Makes each text of the item fit for a terminal, so that a line break in one cannot pose as a field of its own.
void escapeTexts(KSWItem& item) {
    item.setName(escaped(item.name()));
    if (!item.developerName().empty()) {
        item.setDeveloperName(printable(item.developerName()));
    }
    item.setIdentifier(escaped(item.identifier()));
    item.setExecutablePath(escaped(item.executablePath()));
    item.setProgramArguments(escaped(item.programArguments()));
    item.setBundleIdentifier(escaped(item.bundleIdentifier()));
    item.setAssociatedBundleIdentifiers(escaped(item.associatedBundleIdentifiers()));
    item.setTeamIdentifier(escaped(item.teamIdentifier()));
    item.setDesignatedRequirement(escaped(item.designatedRequirement()));
}

std::string dumpOf(const KSWItem& item) {
    const KSWItem::Pointer shown = item.copy();
    shown->setFlags(item.flags());
    escapeTexts(*shown);
    std::vector<KSWItem::Pointer> children;
    if (item.embeddedItems() != nullptr) {
        for (const KSWItem::Pointer& child : *item.embeddedItems()) {
            children.push_back(escapedRelative(*child));
        }
    }
    shown->setEmbeddedItems(children);
    const KSWItem::Pointer parent = item.container();
    const KSWItem::Pointer shownParent = parent != nullptr ? escapedRelative(*parent) : nullptr;
    shown->setContainer(shownParent);
    return shown->dumpVerboseDescription();
}

void printLinesOf(std::string_view dump) {
    while (!dump.empty()) {
        const std::size_t end = dump.find('\n');
        for (const std::string& line : shownLines(printable(dump.substr(0, end), Backslash::Kept), kValueColumn)) {
            std::cout << line << '\n';
        }
        dump.remove_prefix(end == std::string_view::npos ? dump.size() : end + 1);
    }
}

}  // namespace

ExitStatus showItem(const Options& options) {
    const auto answer = itemOrComplaint(options);
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        return *status;
    }
    const KSWItem& item = *std::get<KSWItem::Pointer>(answer);
    if (options.json) {
        print(listedRecordOf(item, options.uid), Form::Json);
    } else {
        printLinesOf(dumpOf(item));
    }
    return ExitStatus::Done;
}

}  // namespace tools::kswctl
