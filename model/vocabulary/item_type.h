// item_type.h: rules about an item's type that the framework keeps to itself. Any thread.
#pragma once

#include <kestrelwood/KSWTypes.h>

namespace ksw {

/// The type without its provenance bits.
constexpr KSWItemType baseKind(KSWItemType type) {
    return type & KSWItemTypeAll;
}

/// Whether an item may be of this type: exactly one base kind; provenance bits do not matter.
bool ValidateItemType(KSWItemType type);

}  // namespace ksw
