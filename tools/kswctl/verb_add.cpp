#include <optional>
#include <utility>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWManager.h>

#include "tools/common/outcome.h"
#include "tools/kswctl/asker.h"
#include "tools/kswctl/change.h"
#include "tools/kswctl/place.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

constexpr Change kEnable{KSWDispositionEnabled, true};

/// The manager hands out an item also when the daemon took none, and one that reads as enabled also when that was
/// not stored. So the record itself is looked at, and what is amiss is asked for once more, by operations that say
/// why they fail.
Changed recordOfAdded(const KSWItem::Pointer& item, ksw::Uid uid) {
    KSWManager& manager = KSWManager::shared();
    std::optional<ksw::Error> error;
    KSWItem::Pointer record = manager.getItemWithIdentifier(item->identifier(), uid);
    if (record == nullptr) {
        if (!manager.addItem(item, uid, &error)) {
            return {error ? resultCodeOf(error) : KSWErrorGeneric, nullptr, std::move(error)};
        }
        record = item;
    }
    Changed enabled = changeRecord(std::move(record), uid, kEnable);
    if (enabled.code == KSWErrorRecordUpdated) {
        enabled.code = KSWErrorNone;
    }
    return enabled;
}

Changed added(const ksw::URL& url, ksw::Uid uid) {
    std::optional<ksw::Error> error;
    const KSWItem::Pointer item = KSWManager::shared().addUserItemForURL(url, uid, &error);
    if (item == nullptr) {
        return {error ? resultCodeOf(error) : KSWErrorGeneric, nullptr, std::move(error)};
    }
    return recordOfAdded(item, uid);
}

}  // namespace

ExitStatus addItem(const Options& options) {
    const std::optional<ksw::URL> url = urlOf(options.location);
    if (!url) {
        complain("'" + options.location + "' is not a URL; a path may begin with ./");
        return ExitStatus::Usage;
    }
    const Changed answer = added(*url, options.uid);
    print(answerRecord(answer.code, answer.item.get(), options.uid), formOf(options));
    return answer.code == KSWErrorNone ? ExitStatus::Done
                                       : complainOf(answer.error, KSWManager::shared().connection());
}

}  // namespace tools::kswctl
