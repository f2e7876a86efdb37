#include <kestrelwood/KSWAdditions.h>

#include <kestrelwood/KSWErrors.h>

#include "platform/base/limits.h"
#include "platform/base/paths.h"
#include "platform/facts/bookmark.h"
#include "platform/facts/bookmark_blob.h"
#include "platform/facts/localized_name.h"
#include "platform/host/log.h"
#include "platform/host/sys.h"
#include "platform/host/trash.h"

namespace {

using ksw::Data;
using ksw::Error;
using ksw::Result;
using ksw::Value;
using ksw::facts::BookmarkContent;

Result<Data> make(const std::optional<ksw::URL>& url) {
    using namespace ksw::facts;
    if (!url) {
        return Error(ksw::kStatusErrorDomain, -50, "no URL");
    }
    Result<Data> bookmark = makeBookmark(*url, kBookmarkWithoutImplicitScope, kItemBookmarkKeys);
    if (!bookmark && bookmark.error().domain() == ksw::kObjectErrorDomain &&
        bookmark.error().code() == static_cast<std::int64_t>(ksw::ObjectError::NoSuchFile)) {
        return makeBookmark(*url, kBookmarkWithoutImplicitScope | kBookmarkOfMissingFile, kItemBookmarkKeys);
    }
    return bookmark;
}

std::optional<std::string> textUnder(const Data& bookmark, std::string_view key) {
    std::optional<Value> value = __ksw_resourcePropertyForKey(bookmark, key);
    auto* text = value ? value->as<std::string>() : nullptr;
    return text == nullptr ? std::nullopt : std::optional(std::move(*text));
}

std::optional<std::string> recordedLocalizedName(const Data& bookmark) {
    return textUnder(bookmark, ksw::kResourceKeyLocalizedName);
}

std::optional<std::string> recordedName(const Data& bookmark) {
    return textUnder(bookmark, ksw::kResourceKeyName);
}

/// The last component of the recorded path, without its extension.
std::optional<std::string> nameInPath(const Data& bookmark) {
    const std::optional<std::string> path = textUnder(bookmark, ksw::kResourceKeyPath);
    if (!path) {
        return std::nullopt;
    }
    std::string_view name = ksw::lastComponent(*path);
    const std::size_t dot = name.rfind('.');
    if (dot != std::string_view::npos && dot > 0 && dot + 1 < name.size()) {
        name = name.substr(0, dot);
    }
    return ksw::facts::readableText(name);
}

using NameSource = std::optional<std::string> (*)(const Data& bookmark);

/// Who shows names agrees on this list, entry by entry. The path stands in it twice: whoever asks a second time
/// gets the same answer, so it does no harm, and the list stays the one that was agreed on.
constexpr NameSource kNameSources[] = {recordedLocalizedName, recordedName, nameInPath, nameInPath};

}  // namespace

std::optional<Data> __ksw_bookmarkDataWithURL(const std::optional<ksw::URL>& url) {
    Result<Data> bookmark = make(url);
    if (!bookmark) {
        ksw::host::mainLog.error("Failed to create bookmark for URL %@ with error %{public}@", url,
                                 bookmark.error());
        return std::nullopt;
    }
    return std::move(*bookmark);
}

std::optional<Data> __ksw_bookmarkDataWithURLString(const std::optional<std::string>& urlString) {
    return __ksw_bookmarkDataWithURL(urlString ? ksw::URL::fromString(*urlString) : std::nullopt);
}

bool __ksw_isFileBookmark(const Data& bookmark) {
    return __ksw_resourcePropertiesForKeys(bookmark, {ksw::kResourceKeyIsRegularFile}).size() == 1;
}

std::optional<Value> __ksw_resourcePropertyForKey(const Data& bookmark, std::string_view key) {
    ksw::Dictionary values = __ksw_resourcePropertiesForKeys(bookmark, {std::string(key)});
    return values.empty() ? std::nullopt : std::optional(std::move(values.begin()->second));
}

ksw::Dictionary __ksw_resourcePropertiesForKeys(const Data& bookmark, const std::vector<std::string>& keys) {
    ksw::Dictionary found;
    const Result<BookmarkContent> content = ksw::facts::readBookmark(bookmark);
    if (!content) {
        return found;
    }
    ksw::Dictionary recorded = ksw::facts::recordedValues(*content);
    if (!content->path.empty()) {
        recorded.insert_or_assign(ksw::kResourceKeyPath, Value(content->path));
    }
    for (const std::string& key : keys) {
        if (const auto value = recorded.find(key); value != recorded.end()) {
            found.insert_or_assign(key, value->second);
        }
    }
    return found;
}

bool __ksw_matchBookmark(const Data& bookmark, const Data& otherBookmark, std::int64_t requiredMatchResult) {
    const Result<BookmarkContent> left = ksw::facts::readBookmark(bookmark);
    const Result<BookmarkContent> right = ksw::facts::readBookmark(otherBookmark);
    const std::int64_t level =
        left && right ? ksw::facts::compareBookmarks(*left, *right) : ksw::kBookmarkMatchNone;
    return level >= requiredMatchResult;
}

std::optional<std::string> __ksw_displayName(const Data& bookmark) {
    for (NameSource source : kNameSources) {
        if (std::optional<std::string> name = source(bookmark)) {
            return name;
        }
    }
    const std::optional<ksw::URL> url =
        __ksw_isFileBookmark(bookmark) ? std::nullopt : __ksw_resolveBookmark(bookmark);
    return url ? std::optional(url->absoluteString()) : std::nullopt;
}

std::optional<ksw::URL> __ksw_resolveBookmark(const Data& bookmark) {
    return __ksw_resolveBookmarkWithOptions(
        bookmark, ksw::kBookmarkResolutionWithoutUI | ksw::kBookmarkResolutionWithoutMounting, std::nullopt);
}

std::optional<ksw::URL> __ksw_resolveBookmarkWithOptions(const Data& bookmark, std::uint64_t options,
                                                         const std::optional<ksw::URL>& relativeToURL,
                                                         bool* bookmarkDataIsStale, std::optional<Error>* error) {
    ksw::host::mainLog.debug("Resolve bookmark with options: %d", options);
    Result<ksw::facts::ResolvedBookmark> resolved =
        ksw::facts::resolveBookmark(bookmark, options, relativeToURL ? &*relativeToURL : nullptr);
    if (!resolved) {
        if (error != nullptr) {
            *error = resolved.error();
        }
        return std::nullopt;
    }
    if (bookmarkDataIsStale != nullptr) {
        *bookmarkDataIsStale = resolved->isStale;
    }
    // Most paths are known by now to lead nowhere near a trash.
    const bool mayLieInTrash =
        resolved->isStale || !resolved->isWithoutLinks || ksw::host::mayLeadIntoTrash(resolved->path);
    if (mayLieInTrash && __ksw_isInTrash(resolved->url)) {
        if (error != nullptr) {
            *error = KSWErrorWithCode(KSWErrorBookmarkInTrash);
        }
        return std::nullopt;
    }
    return std::move(resolved->url);
}
