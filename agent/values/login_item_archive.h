// login_item_archive.h: login items in keyed archives.
#pragma once

#include <kestrelwood/KSWLoginItem.h>

#include "platform/archive/class_info.h"

/// The table of a login item's keys. A type of 0 decodes as 1, a user item.
const ksw::archive::ClassInfo& archiveClass(const KSWLoginItem* item);
