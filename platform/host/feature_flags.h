// feature_flags.h: switches that the host's owner sets. A flag stands in `/etc/kestrelwood/features/DOMAIN.plist`,
// else in `/usr/share/kestrelwood/features/DOMAIN.plist`: a dictionary from feature names to bools.
#pragma once

#include <string_view>

#include <kestrelwood/values/value.h>

#include "platform/base/result.h"

namespace ksw::host {

/// Reads a property list of either form.
using PropertyListReader = Result<Value> (*)(Bytes bytes);

/// Whether the feature is on. A file without the feature leaves it to the next one; without an answer the feature
/// is on. A file that cannot be read, or is not a dictionary with a bool, is logged as an error and taken for
/// absent. Reads the files on each call. Any thread.
bool isFeatureEnabled(std::string_view domain, std::string_view feature, PropertyListReader read);

}  // namespace ksw::host
