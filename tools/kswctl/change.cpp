#include "tools/kswctl/change.h"

#include <utility>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWManager.h>

#include "tools/kswctl/asker.h"

namespace tools::kswctl {
namespace {

/// Each loss means that somebody else's change went through, so losing so often in a row takes a flood of them.
constexpr int kAttempts = 16;

bool isSo(const KSWItem& item, const Change& change) {
    return ((item.disposition() & change.bit) != 0) == change.raised;
}

KSWDisposition changed(KSWDisposition disposition, const Change& change) {
    return change.raised ? disposition | change.bit : disposition & ~change.bit;
}

Changed failed(KSWItem::Pointer item, std::optional<ksw::Error> error) {
    // Without a connection there is no error either.
    const std::int64_t code = error ? resultCodeOf(error) : KSWErrorGeneric;
    return {code, std::move(item), std::move(error)};
}

}  // namespace

Changed changeRecord(KSWItem::Pointer item, ksw::Uid uid, const Change& change) {
    KSWManager& manager = KSWManager::shared();
    for (int attempt = 1; !isSo(*item, change); ++attempt) {
        const KSWDisposition before = item->disposition();
        std::optional<ksw::Error> error;
        item->setDisposition(changed(before, change));
        if (manager.updateItem(item, uid, &error)) {
            return {KSWErrorRecordUpdated, std::move(item), std::nullopt};
        }
        item->setDisposition(before);
        if (resultCodeOf(error) != KSWErrorInvalidGeneration || attempt == kAttempts) {
            return failed(std::move(item), std::move(error));
        }
        KSWItem::Pointer current = manager.fetchItemWithUUID(item->uuid(), uid, &error);
        if (current == nullptr) {
            return failed(std::move(item), error ? std::move(error) : KSWErrorWithCode(KSWErrorRecordNotFound));
        }
        item = std::move(current);
    }
    return {KSWErrorNone, std::move(item), std::nullopt};
}

}  // namespace tools::kswctl
