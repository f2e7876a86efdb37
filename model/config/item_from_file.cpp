// item_from_file.cpp: what the file behind an item says of it: its identifier, its name, its date, its signature.

#include <stdexcept>
#include <utility>

#include <kestrelwood/KSWCodeSignInfo.h>
#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWItem.h>

#include "model/vocabulary/item_type.h"
#include "platform/base/text.h"
#include "platform/host/file_facts.h"

namespace {

using ksw::URL;

constexpr std::string_view kApplicationSuffix = ".app";

std::optional<std::string> identifierOfUserItem(const URL& url) {
    if (!url.isFileURL()) {
        return url.absoluteString();
    }
    const ksw::Result<std::string> path = ksw::host::canonicalPath(url.path());
    return path ? std::optional(URL::fileURL(*path).absoluteString()) : std::nullopt;
}

/// The name under which a person knows the file.
std::string displayName(const URL& url, bool isApplication) {
    std::string name = url.lastPathComponent();
    if (isApplication && name.ends_with(kApplicationSuffix)) {
        name.resize(name.size() - kApplicationSuffix.size());
    }
    return name;
}

std::optional<std::string> signingIdentifier(const URL& url) {
    const auto info = KSWCodeSignInfo::codeSignInfoForURL(url);
    return info == nullptr ? std::nullopt : info->signingIdentifier();
}

/// What the signature says of the code; nothing without one that holds. An agent or daemon is not its own code: it
/// has these facts from its configuration.
void readSignature(KSWItem& item, const URL& url) {
    if (item.intersectsType(KSWItemTypeAgent | KSWItemTypeDaemon)) {
        return;
    }
    if (const auto info = KSWCodeSignInfo::codeSignInfoForURL(url)) {
        item.setBundleIdentifier(info->bundleIdentifier());
        item.setTeamIdentifier(info->teamIdentifier());
        item.setDesignatedRequirement(info->designatedRequirement());
        item.setLightweightRequirement(info->lightweightCodeRequirement());
        item.setSandboxed(item.isSandboxed() || info->isSandboxed());
    }
}

void readFile(KSWItem& item, const URL& url) {
    item.setUrl(url);
    if (!url.isFileURL()) {
        item.setName(url.absoluteString());
        return;
    }
    const ksw::Result<ksw::host::FileFacts> facts = ksw::host::fileFacts(url.path());
    item.setName(displayName(url, facts && facts->isApplication));
    readSignature(item, url);
    if (facts) {
        item.setModificationDate(facts->contentModificationDate.secondsSinceReference);
    }
}

}  // namespace

std::optional<std::string> ItemIdentifierForURLAndType(KSWItemType type, const URL& url) {
    const KSWItemType kind = ksw::baseKind(type);
    switch (kind) {
        case KSWItemTypeUserItem:
            return identifierOfUserItem(url);
        case KSWItemTypeAgent:
        case KSWItemTypeDaemon:
            return ComposedItemIdentifier(type, LabelForStewardPlist(url));
        case KSWItemTypeApp:
        case KSWItemTypeLoginItem:
        case KSWItemTypeLodestar:
        case KSWItemTypeShelfTile:
        case KSWItemTypeInputMethod:
        case KSWItemTypeSmartCard:
        case KSWItemTypeColorPicker:
        case KSWItemTypeGlimpse:
            return ComposedItemIdentifier(type, signingIdentifier(url));
        default:
            throw std::invalid_argument(
                ksw::format("%s: unrecognized base type: %ld", ksw::Literal{"ItemIdentifierForURLAndType"}, kind));
    }
}

KSWItem::Pointer KSWItem::initWithType(KSWItemType type, const URL& url) {
    std::optional<std::string> identifier = ItemIdentifierForURLAndType(type, url);
    return identifier ? itemWithType(type, url, std::move(identifier)) : nullptr;
}

KSWItem::Pointer KSWItem::itemWithType(KSWItemType type, const URL& url) {
    return initWithType(type, url);
}

KSWItem::Pointer KSWItem::itemWithType(KSWItemType type, const URL& url, OptionalString identifier) {
    Pointer item = initWithType(type, std::move(identifier));
    readFile(*item, url);
    return item;
}
