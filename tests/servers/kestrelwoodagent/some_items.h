// some_items.h: login items of files that need not exist, and of files that do.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <kestrelwood/KSWLoginItem.h>
#include <kestrelwood/resource_keys.h>

#include "platform/facts/bookmark_blob.h"

namespace ksw::agentserver::test {

using Item = std::shared_ptr<KSWLoginItem>;

/// A bookmark of a file with this number as its own, at this path.
inline Data bookmarkOf(std::string_view path, std::uint64_t file) {
    facts::BookmarkContent content;
    content.path = path;
    content.file = facts::FileRecord{7, {1, file, 100, 0}};
    return *facts::writeBookmark(content, Dictionary());
}

inline Item itemOf(std::uint64_t file, bool hidden = false, KSWItemType type = KSWItemTypeUserItem) {
    return KSWLoginItem::initWithType(type, std::nullopt, bookmarkOf("/opt/file" + std::to_string(file), file),
                                      hidden);
}

inline std::vector<Item> itemsOf(std::uint64_t first, std::size_t count) {
    std::vector<Item> items;
    for (std::uint64_t file = first; items.size() < count; ++file) {
        items.push_back(itemOf(file));
    }
    return items;
}

/// What tells items apart, in their order.
inline std::vector<std::string> identifiersOf(const std::vector<Item>& items) {
    std::vector<std::string> identifiers;
    for (const Item& item : items) {
        identifiers.push_back(item->identifier() ? item->identifier()->string() : "none");
    }
    return identifiers;
}

}  // namespace ksw::agentserver::test
