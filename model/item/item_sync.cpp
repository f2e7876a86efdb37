// How a record follows its file.
#include <kestrelwood/KSWItem.h>

#include "model/item/item_fields.h"
#include "platform/facts/bookmark.h"
#include "platform/facts/resource_values.h"
#include "platform/host/file_facts.h"
#include "platform/host/log.h"

using ksw::URL;
using ksw::host::mainLog;
using OptionalURL = std::optional<URL>;

namespace {

constexpr ksw::Literal kFunction{"-[KSWItem syncURLAndBookmark]"};

std::optional<ksw::Data> bookmarkOf(const URL& url) {
    ksw::Result<ksw::Data> bookmark = ksw::facts::makeBookmark(url, ksw::facts::kBookmarkWithoutImplicitScope);
    return bookmark ? std::optional(std::move(*bookmark)) : std::nullopt;
}

bool areSameFile(const URL& url, const OptionalURL& other) {
    if (!other || !other->isFileURL()) {
        return false;
    }
    const auto facts = ksw::host::fileFacts(url.path());
    const auto otherFacts = ksw::host::fileFacts(other->path());
    return facts && otherFacts && facts->identifier == otherFacts->identifier;
}

}  // namespace

bool KSWItem::syncURLAndBookmark() {
    mainLog.debug("%s: identifier=%{public}@", kFunction, fields_->identifier);
    if (!intersectsType(KSWItemTypeUserItem | KSWItemTypeApp)) {
        return false;
    }
    const OptionalURL url = fields_->url;
    const OptionalURL resolved = resolvedURL();
    mainLog.debug("%s: url=%@", kFunction, url);
    mainLog.debug("%s: resolvedURL=%@", kFunction, resolved);
    if (ksw::facts::hasFile(url)) {
        if (!fields_->isResolvedURLStale && areSameFile(*url, resolved)) {
            return false;
        }
        mainLog.debug("%s: updating bookmark", kFunction);
        fields_->bookmark = bookmarkOf(*url);
        return true;
    }
    if (!ksw::facts::hasFile(resolved)) {
        return false;
    }
    mainLog.debug("%s: updating url to %@", kFunction, resolved);
    fields_->url = resolved;
    if (fields_->isResolvedURLStale) {
        fields_->bookmark = bookmarkOf(*resolved);
        fields_->isResolvedURLStale = false;
    }
    return true;
}
