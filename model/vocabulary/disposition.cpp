#include <kestrelwood/KSWTypes.h>

namespace {

struct DispositionText {
    KSWDisposition bit;
    std::string_view set;
    std::string_view clear;
};

constexpr DispositionText kDispositionTexts[] = {
    {KSWDispositionEnabled, "enabled", "disabled"},
    {KSWDispositionAllowed, "allowed", "disallowed"},
    {KSWDispositionHidden, "hidden", "visible"},
    {KSWDispositionNotified, "notified", "not notified"},
};

}  // namespace

std::string KSWDispositionDescription(KSWDisposition disposition) {
    std::string text = "[";
    for (const DispositionText& row : kDispositionTexts) {
        if (text.size() > 1) {
            text += ", ";
        }
        text += (disposition & row.bit) != 0 ? row.set : row.clear;
    }
    text += "]";
    if ((disposition & KSWDispositionPendingAuthorization) != 0) {
        text += " (pending authorization)";
    }
    return text;
}

bool KSWDispositionIsLaunchable(KSWDisposition disposition) {
    constexpr KSWDisposition needed = KSWDispositionEnabled | KSWDispositionAllowed;
    return (disposition & needed) == needed;
}
