// fetch_result_archive.h: fetch results in keyed archives: the code, and an archive of each item's chain.
#pragma once

#include <kestrelwood/KSWFetchResult.h>

#include "platform/archive/class_info.h"

/// The table of a fetch result's keys. Items and containers are made from the chains when the whole archive has
/// been read; a chain that cannot be read is logged and left out. More chains than `ksw::limits::kListItemsMax` are
/// refused.
const ksw::archive::ClassInfo& archiveClass(const KSWFetchResult* result);
