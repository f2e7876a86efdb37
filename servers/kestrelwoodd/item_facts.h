// item_facts.h: what a registration says of an item and what its files say: the part of a record that is
// taken anew each time, while its disposition and identity stay.
#pragma once

#include <kestrelwood/KSWItem.h>

namespace ksw::daemon {

/// Whether a record says the same as `other` of type, URL, name, executable, arguments, digest, file dates, of who
/// made the code, and which applications it belongs to; and of the bookmark, unless `other` has none: then its file
/// could not be seen. A record that is managed, or of an application somebody registered, says so already.
bool haveSameFacts(const KSWItem& item, const KSWItem& other);

/// Gives `item` these facts of `source`; it keeps its bookmark when that has none, and stays managed when it is.
void takeFacts(KSWItem& item, const KSWItem& source);

}  // namespace ksw::daemon
