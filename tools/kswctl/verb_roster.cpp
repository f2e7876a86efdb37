// The legacy login items.
#include <utility>
#include <variant>
#include <vector>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWManager.h>

#include "tools/common/outcome.h"
#include "tools/kswctl/asker.h"
#include "tools/kswctl/items.h"
#include "tools/kswctl/place.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

using Items = std::vector<KSWItem::Pointer>;
using MaybeError = std::optional<ksw::Error>;

KSWManager& roster() {
    return KSWManager::sharedRosterManager();
}

std::variant<Items, ExitStatus> itemsOrComplaint(const Options& options) {
    MaybeError error;
    std::optional<Items> items =
        roster().fetchRosterItemsMatching(static_cast<std::int64_t>(options.kinds), &error);
    if (!items) {
        return complainOf(error, roster().connection());
    }
    return *std::move(items);
}

std::variant<KSWItem::Pointer, ExitStatus> itemInRoster(const Options& options) {
    const auto answer = itemsOrComplaint(options);
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        return *status;
    }
    return itemAmong(std::get<Items>(answer), options.item);
}

/// Prints what became of a request, and says why when it failed. Without a connection it has no error either.
ExitStatus answered(bool success, std::int64_t code, const KSWItem* item, const MaybeError& error,
                    const Options& options) {
    print(answerRecord(success ? code : (error ? resultCodeOf(error) : KSWErrorGeneric), item, options.uid),
          formOf(options));
    return success ? ExitStatus::Done : complainOf(error, roster().connection());
}

KSWItemType kindOf(const ksw::URL& url, const Options& options) {
    if (options.kindOfFile) {
        return *options.kindOfFile;
    }
    return QCURLConformsToBundle(url) ? KSWItemTypeApp : KSWItemTypeUserItem;
}

void change(KSWItem& item, const Options& options) {
    if (options.enabled) {
        item.setEnabled(*options.enabled);
    }
    if (options.allowed) {
        item.setAllowed(*options.allowed);
    }
    if (options.hidden) {
        item.setHidden(*options.hidden);
    }
}

}  // namespace

ExitStatus listRoster(const Options& options) {
    const auto answer = itemsOrComplaint(options);
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        return *status;
    }
    printItems(std::get<Items>(answer), options);
    return ExitStatus::Done;
}

ExitStatus addToRoster(const Options& options) {
    const std::optional<ksw::URL> url = urlOf(options.location);
    if (!url) {
        complain("'" + options.location + "' is not a URL; a path may begin with ./");
        return ExitStatus::Usage;
    }
    MaybeError error;
    const KSWItem::Pointer item = roster().addRosterItemWithURL(
        url, static_cast<std::int64_t>(kindOf(*url, options)), options.global, options.managed, &error);
    return answered(item != nullptr, KSWErrorNone, item.get(), error, options);
}

ExitStatus updateRoster(const Options& options) {
    const auto answer = itemInRoster(options);
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        return *status;
    }
    const KSWItem::Pointer& item = std::get<KSWItem::Pointer>(answer);
    change(*item, options);
    MaybeError error;
    const bool updated = roster().updateRosterItem(item, &error);
    return answered(updated, KSWErrorRecordUpdated, item.get(), error, options);
}

ExitStatus removeFromRoster(const Options& options) {
    const auto answer = itemInRoster(options);
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        return *status;
    }
    const KSWItem::Pointer& item = std::get<KSWItem::Pointer>(answer);
    MaybeError error;
    const bool removed = roster().removeRosterItem(item, &error);
    return answered(removed, KSWErrorNone, item.get(), error, options);
}

}  // namespace tools::kswctl
