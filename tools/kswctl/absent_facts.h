// absent_facts.h: why an item lacks what others have.
#pragma once

#include <string>

#include "tools/common/record.h"
#include "tools/kswctl/derived_item.h"

namespace tools::kswctl {

/// The reasons by the names of the fields that are null in the item's record, in their order. Reads signatures
/// again.
Record absentFacts(const DerivedItem& derived, const Record& record);

}  // namespace tools::kswctl
