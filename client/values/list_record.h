// list_record.h: a list of items as it travels: the daemon writes it, the client makes a KSWList of it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <kestrelwood/KSWItem.h>

#include "platform/archive/class_info.h"

namespace ksw {

/// A user's items that match a type mask, in the daemon's order. In archives its class is called "KSWList".
struct ListRecord {
    /// The items, and whether the archive had them at all. None of them is null.
    struct Items {
        std::vector<std::shared_ptr<KSWItem>> items;
        bool isThere = false;
    };

    std::uint32_t uid = 0;
    std::int64_t type = 0;
    Items items;
};

/// The table of the list's keys. A list without "items", or of more than limits::kListItemsMax items, cannot be
/// read.
const archive::ClassInfo& archiveClass(const ListRecord* list);

}  // namespace ksw
