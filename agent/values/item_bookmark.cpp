#include "agent/values/item_bookmark.h"

#include "platform/facts/bookmark.h"
#include "platform/host/log.h"

namespace ksw::agent {

namespace {

constexpr std::int64_t kWrongParameter = -50;

Result<Data> make(const std::optional<URL>& url) {
    if (!url) {
        return Error(kStatusErrorDomain, kWrongParameter, "no URL");
    }
    return facts::makeBookmark(*url, facts::kBookmarkWithoutImplicitScope, facts::kItemBookmarkKeys);
}

}  // namespace

std::optional<Data> bookmarkForItem(const std::optional<URL>& url) {
    Result<Data> bookmark = make(url);
    if (!bookmark) {
        host::mainLog.error("Failed to create bookmark with URL: %@ error: %{public}@", url, bookmark.error());
        return std::nullopt;
    }
    return std::move(*bookmark);
}

}  // namespace ksw::agent
