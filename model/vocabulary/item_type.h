// item_type.h: rules about an item's type that the framework keeps to itself. Any thread.
#pragma once

#include <kestrelwood/KSWTypes.h>

namespace ksw {

/// The type without its provenance bits.
constexpr KSWItemType baseKind(KSWItemType type) {
    return type & KSWItemTypeAll;
}

}  // namespace ksw
