// item_archive.h: items in keyed archives. The ordinary coder knows an item's children, that of a service
// connection does not: what it decodes has no set of children at all.
#pragma once

#include <kestrelwood/KSWItem.h>

#include "platform/archive/class_info.h"

/// The table of an item's 24 keys. After decoding: a type that no item can have is 0; an item whose chain of
/// containers returns to itself or is longer than `ksw::limits::kContainerChainMax` is refused.
const ksw::archive::ClassInfo& archiveClass(const KSWItem* item);
