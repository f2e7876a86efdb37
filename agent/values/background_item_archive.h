// background_item_archive.h: background items in keyed archives.
#pragma once

#include <kestrelwood/KSWBackgroundItem.h>

#include "platform/archive/class_info.h"

/// The table of a background item's keys.
const ksw::archive::ClassInfo& archiveClass(const KSWBackgroundItem* item);
