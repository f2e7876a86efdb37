// item_from_file.cpp: what the file behind an item says of it: its identifier, its name, its date, its signature.

#include <stdexcept>
#include <utility>

#include <kestrelwood/KSWCodeSignInfo.h>
#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWItem.h>

#include "model/config/identifier_of_file.h"
#include "model/vocabulary/item_type.h"
#include "platform/base/text.h"
#include "platform/facts/bookmark.h"
#include "platform/facts/code_sign_info.h"
#include "platform/facts/file_inside.h"
#include "platform/host/file_facts.h"

using ksw::URL;
using ksw::facts::FoundFile;
using OptionalURL = std::optional<URL>;

namespace {

std::optional<std::string> identifierOfUserItem(const URL& url) {
    if (!url.isFileURL()) {
        return url.absoluteString();
    }
    const ksw::Result<std::string> path = ksw::host::canonicalPath(url.path());
    return path ? std::optional(URL::fileURL(*path).absoluteString()) : std::nullopt;
}

std::optional<std::string> signingIdentifier(const FoundFile& file) {
    const auto info = ksw::CodeSignInfoAccess::ofFound(file);
    return info == nullptr ? std::nullopt : info->signingIdentifier();
}

void readSignature(KSWItem& item, const FoundFile& file) {
    if (const auto info = ksw::CodeSignInfoAccess::ofFound(file)) {
        item.setBundleIdentifier(info->bundleIdentifier());
        item.setTeamIdentifier(info->teamIdentifier());
        item.setDesignatedRequirement(info->designatedRequirement());
        item.setLightweightRequirement(info->lightweightCodeRequirement());
        item.setSandboxed(item.isSandboxed() || info->isSandboxed());
    }
}

void readDate(KSWItem& item, const URL& url) {
    if (!url.isFileURL()) {
        return;
    }
    if (const ksw::Result<ksw::host::FileFacts> facts = ksw::host::fileFacts(url.path())) {
        item.setModificationDate(facts->contentModificationDate.secondsSinceReference);
    }
}

}  // namespace

std::optional<std::string> ksw::config::identifierOfFile(KSWItemType type, const FoundFile& file) {
    const KSWItemType kind = ksw::baseKind(type);
    switch (kind) {
        case KSWItemTypeUserItem:
            return identifierOfUserItem(file.url);
        case KSWItemTypeAgent:
        case KSWItemTypeDaemon:
            return ComposedItemIdentifier(type, LabelForStewardPlist(file.readingURL));
        case KSWItemTypeApp:
        case KSWItemTypeLoginItem:
        case KSWItemTypeLodestar:
        case KSWItemTypeShelfTile:
        case KSWItemTypeInputMethod:
        case KSWItemTypeSmartCard:
        case KSWItemTypeColorPicker:
        case KSWItemTypeGlimpse:
            return ComposedItemIdentifier(type, signingIdentifier(file));
        default:
            throw std::invalid_argument(
                ksw::format("%s: unrecognized base type: %ld", ksw::Literal{"ItemIdentifierForURLAndType"}, kind));
    }
}

std::optional<std::string> ItemIdentifierForURLAndType(KSWItemType type, const URL& url) {
    return ksw::config::identifierOfFile(type, {url, url, ksw::UniqueFd()});
}

void KSWItem::_initPropertiesWithURL(const URL& url, const OptionalURL& containerURL) {
    const std::optional<FoundFile> place = ksw::facts::findOfItem(url, containerURL);
    setUrl(url);
    setName(place ? ItemNameForURL(place->url) : url.lastPathComponent());
    if (intersectsType(KSWItemTypeUserItem | KSWItemTypeApp)) {
        ksw::Result<ksw::Data> bookmark = ksw::facts::makeBookmark(url, ksw::facts::kBookmarkWithoutImplicitScope);
        setBookmark(bookmark ? std::optional(std::move(*bookmark)) : std::nullopt);
    }
    if (!place) {
        return;
    }
    // An agent or daemon is not its own code: it has these facts from its configuration.
    if (!intersectsType(KSWItemTypeAgent | KSWItemTypeDaemon)) {
        readSignature(*this, *place);
    }
    readDate(*this, place->readingURL);
}
