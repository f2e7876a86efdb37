#include "tools/kswctl/items.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <kestrelwood/KSWManager.h>

#include "tools/common/outcome.h"
#include "tools/common/text.h"
#include "tools/kswctl/asker.h"
#include "tools/kswctl/record.h"

namespace tools::kswctl {
namespace {

using Items = std::vector<KSWItem::Pointer>;

constexpr std::size_t kCandidatesShown = 20;

std::string uuidOf(const KSWItem& item) {
    return item.uuid() ? item.uuid()->string() : std::string();
}

std::string upperCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char letter) {
        return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 32) : letter;
    });
    return text;
}

/// The items that `isMeant` says yes to.
template <class Predicate>
Items those(const Items& items, Predicate isMeant) {
    Items found;
    std::copy_if(items.begin(), items.end(), std::back_inserter(found),
                 [&](const KSWItem::Pointer& item) { return isMeant(*item); });
    return found;
}

/// Whoever is named in full is meant, even when others begin with the same.
Items candidates(const Items& items, const std::string& text) {
    const std::string uuid = upperCase(text);
    Items found =
        those(items, [&](const KSWItem& item) { return item.identifier() == text || uuidOf(item) == uuid; });
    if (!found.empty()) {
        return found;
    }
    return those(items, [&](const KSWItem& item) {
        return (item.identifier() && item.identifier()->starts_with(text)) || uuidOf(item).starts_with(uuid);
    });
}

void showCandidates(const Items& items) {
    const std::size_t shown = std::min(items.size(), kCandidatesShown);
    for (std::size_t index = 0; index < shown; ++index) {
        const KSWItem& item = *items[index];
        std::cerr << "  " << uuidOf(item) << "  " << printable(item.identifier().value_or("-")) << '\n';
    }
    if (items.size() > shown) {
        std::cerr << "  and " << items.size() - shown << " more\n";
    }
}

/// What a person looks for in a list.
Record rowOf(const Record& item) {
    return Record::object({{"identifier", item["identifier"]},
                           {"type", item["typeText"]},
                           {"disposition", item["dispositionText"]},
                           {"name", item["name"]}});
}

}  // namespace

std::variant<std::shared_ptr<KSWList>, ExitStatus> listOrComplaint(const Options& options) {
    std::optional<ksw::Error> error;
    std::shared_ptr<KSWList> list =
        KSWManager::shared().getItemsMatching(static_cast<std::int64_t>(options.kinds), options.uid, &error);
    if (list == nullptr) {
        return complainOf(error, KSWManager::shared().connection());
    }
    return list;
}

std::variant<KSWItem::Pointer, ExitStatus> itemOrComplaint(const Options& options) {
    const auto answer = listOrComplaint(options);
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        return *status;
    }
    return itemAmong(std::get<std::shared_ptr<KSWList>>(answer)->items(), options.item);
}

std::variant<KSWItem::Pointer, ExitStatus> itemAmong(const Items& items, const std::string& text) {
    const Items found = candidates(items, text);
    if (found.empty()) {
        complain("no item's identifier or UUID begins with '" + text + "'");
        return ExitStatus::NoSuchItem;
    }
    if (found.size() > 1) {
        complain("'" + text + "' is ambiguous:");
        showCandidates(found);
        return ExitStatus::Usage;
    }
    return found.front();
}

void printItems(const Items& items, const Options& options) {
    Record records = Record::array();
    for (const KSWItem::Pointer& item : items) {
        records.push_back(listedRecordOf(*item, options.uid));
    }
    printList(records, rowOf, options);
}

}  // namespace tools::kswctl
