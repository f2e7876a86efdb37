// change.h: changing one bit of what is decided about an item.
#pragma once

#include <cstdint>
#include <optional>

#include <kestrelwood/KSWItem.h>
#include <kestrelwood/values.h>

namespace tools::kswctl {

/// A bit of the disposition, and how it is to be.
struct Change {
    KSWDisposition bit = 0;
    bool raised = false;
};

struct Changed {
    std::int64_t code = 0;            ///< -93 when it was stored, 0 when it was so already, else why it failed.
    KSWItem::Pointer item;            ///< As it is recorded now, or was last seen.
    std::optional<ksw::Error> error;  ///< Of a failure, when there is one.
};

/// Stores the change. Somebody else may change the item meanwhile: then it is fetched and changed anew, a few
/// times.
Changed changeRecord(KSWItem::Pointer item, ksw::Uid uid, const Change& change);

}  // namespace tools::kswctl
