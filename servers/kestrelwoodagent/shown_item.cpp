#include "servers/kestrelwoodagent/shown_item.h"

#include <string>
#include <utility>

#include <kestrelwood/KSWAdditions.h>
#include <kestrelwood/resource_keys.h>

#include "platform/facts/bookmark.h"
#include "platform/facts/bookmark_blob.h"

namespace ksw::agentserver {

namespace {

/// A bookmark of the item's file, there or not, that shows the item's name: the file of a job is called otherwise.
std::optional<Data> bookmarkOfFile(const KSWItem& item) {
    const std::optional<std::string> path = item.fullPath();
    if (!path || !path->starts_with('/')) {
        return std::nullopt;
    }
    constexpr std::uint64_t kOptions = facts::kBookmarkWithoutImplicitScope | facts::kBookmarkOfMissingFile;
    Result<Data> bookmark = facts::makeBookmark(URL::fileURL(*path), kOptions, facts::kItemBookmarkKeys);
    if (!bookmark) {
        return std::nullopt;
    }
    const Result<facts::BookmarkContent> content = facts::readBookmark(*bookmark);
    if (!content || !item.name()) {
        return *std::move(bookmark);
    }
    Dictionary values = facts::recordedValues(*content);
    values.insert_or_assign(std::string(kResourceKeyLocalizedName), Value(*item.name()));
    Result<Data> named = facts::writeBookmark(*content, std::move(values));
    return named ? *std::move(named) : *std::move(bookmark);
}

}  // namespace

std::shared_ptr<KSWBackgroundItem> shownItem(const KSWItem& item) {
    return KSWBackgroundItem::initWithIdentifier(
        item.uuid(), item.type(), item.bookmark() ? item.bookmark() : bookmarkOfFile(item),
        item.isAllowed() ? KSWUserElectionAllowed : KSWUserElectionDisallowed);
}

FileAsked::FileAsked(const URL& url) : path_(url.path()), bookmark_(__ksw_bookmarkDataWithURL(url)) {}

bool FileAsked::isOf(const KSWItem& item) const {
    const bool isBookmarked =
        bookmark_ && item.bookmark() && __ksw_matchBookmark(*bookmark_, *item.bookmark(), kBookmarkMatchFile);
    return isBookmarked || item.fullPath() == path_;
}

}  // namespace ksw::agentserver
