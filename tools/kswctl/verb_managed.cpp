// What device management has decided: payloads, and jobs.
#include <optional>
#include <string>
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

KSWManager& manager() {
    return KSWManager::shared();
}

/// Nobody says why a payload is not there: perhaps nobody answers, or the caller may not know.
ExitStatus complainOfNoPayload(const Options& options) {
    if (const auto status = complainWhenSilent(manager().connection())) {
        return *status;
    }
    complain("no payload under '" + options.name + "'");
    return ExitStatus::NoSuchItem;
}

/// Stores the payload, or none. The daemon does not say whether it did, so it is asked what there is now.
ExitStatus store(const std::optional<ksw::Dictionary>& payload, const Options& options) {
    manager().setMDMPayload(payload, options.name, !options.later);
    if (const auto status = complainWhenSilent(manager().connection())) {
        return *status;
    }
    if (manager().mdmPayloadForIdentifier(options.name) != payload) {
        return complainOfRefusal(ksw::kEveryUser, "the daemon has not taken the payload");
    }
    print(
        Record::object({{"identifier", options.name}, {"payload", payload ? recordOf(*payload) : Record(nullptr)}}),
        formOf(options));
    return ExitStatus::Done;
}

ExitStatus listJobs(Options options) {
    options.kinds = KSWItemTypeAgent | KSWItemTypeDaemon;
    const auto answer = listOrComplaint(options);
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        return *status;
    }
    std::vector<KSWItem::Pointer> items = std::get<std::shared_ptr<KSWList>>(answer)->items();
    // Other jobs may stand under a rule, and be managed in that sense.
    std::erase_if(items, [](const KSWItem::Pointer& item) { return (item->type() & KSWItemTypeManagedBit) == 0; });
    printItems(items, options);
    return ExitStatus::Done;
}

}  // namespace

ExitStatus showPayload(const Options& options) {
    const std::optional<ksw::Dictionary> payload = manager().mdmPayloadForIdentifier(options.name);
    if (!payload) {
        return complainOfNoPayload(options);
    }
    print(recordOf(*payload), formOf(options));
    return ExitStatus::Done;
}

ExitStatus setPayload(const Options& options) {
    std::optional<ksw::Error> error;
    const std::optional<ksw::Dictionary> payload =
        ksw::readPropertyListFile(ksw::URL::fileURL(settled(options.location).native()), &error);
    if (!payload) {
        return complain(Complaint{ExitStatus::Failed, options.location + ": " + error.value().description()});
    }
    // An empty one is none.
    return store(payload->empty() ? std::nullopt : payload, options);
}

ExitStatus removePayload(const Options& options) {
    if (!manager().mdmPayloadForIdentifier(options.name)) {
        return complainOfNoPayload(options);
    }
    return store(std::nullopt, options);
}

ExitStatus manageJobs(const Options& options) {
    std::optional<ksw::Error> error;
    bool success = false;
    if (options.jobToSubmit) {
        success = manager().submitManagedJobAtPath(settled(*options.jobToSubmit).native(), &error);
    } else if (options.jobToRemove) {
        success = manager().removeManagedJobAtPath(settled(*options.jobToRemove).native(), &error);
    } else if (options.labelToRemove) {
        success = manager().removeManagedJobWithLabel(options.labelToRemove, &error);
    } else {
        return listJobs(options);
    }
    const std::int64_t code = success ? KSWErrorNone : error ? resultCodeOf(error) : KSWErrorGeneric;
    print(Record::object({{"code", code}, {"message", KSWErrorString(code)}}), formOf(options));
    return success ? ExitStatus::Done : complainOf(error, manager().connection());
}

}  // namespace tools::kswctl
