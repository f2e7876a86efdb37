// user_settings_archive.h: user settings in keyed archives. The uid does not travel.
#pragma once

#include <kestrelwood/KSWUserSettings.h>

#include "platform/archive/class_info.h"

/// The table of the settings' keys. An enablement status of another kind reads as none.
const ksw::archive::ClassInfo& archiveClass(const KSWUserSettings* settings);
