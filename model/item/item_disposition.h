// item_disposition.h: what a family decides for its items.
#pragma once

class KSWItem;

namespace ksw {

/// Whether the item is allowed as far as its family goes: approval is given per developer or application, an
/// extension and what hangs under the unknown developer are judged alone. Looks at no file.
bool isAllowedInFamily(const KSWItem& item);

}  // namespace ksw
