// item_facts.h: what a registration says of an item and what its files say: the part of a record that is
// taken anew each time, while its disposition and identity stay.
#pragma once

#include <kestrelwood/KSWItem.h>

namespace ksw::daemon {

/// Whether two records say the same of type, URL, name, executable, arguments, digest, file dates, and of who made
/// the code; and of the bookmark, unless `other` has none: then its file could not be seen.
bool haveSameFacts(const KSWItem& item, const KSWItem& other);

/// Gives `item` these facts of `source`; it keeps its bookmark when that has none.
void takeFacts(KSWItem& item, const KSWItem& source);

}  // namespace ksw::daemon
