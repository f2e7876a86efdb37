#include "tools/kswctl/asker.h"

#include <string>
#include <utility>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWManager.h>
#include <kestrelwood/KSWRegistrar.h>

#include "tools/common/outcome.h"

namespace tools::kswctl {
namespace {

template <class Client>
std::int64_t registerWith(Client& client, const Subject& subject, std::shared_ptr<KSWItem>* item) {
    return client.registerItem(item, subject.bundleURL, subject.type, subject.itemURL, subject.configuration,
                               subject.uid);
}

template <class Client>
bool askWith(Client& client, const Subject& subject, std::int64_t* disposition, std::optional<ksw::Data>* LWCR) {
    return client.getEffectiveDisposition(disposition, LWCR, subject.bundleURL, subject.type, subject.itemURL,
                                          subject.configuration, subject.uid);
}

Outcome<ksw::Dictionary> countersOf(ksw::ServiceConnection* connection) {
    if (connection == nullptr) {
        return Complaint{ExitStatus::Failed,
                         "the feature ControlAutomaticAppLaunch is off: the daemon is not asked"};
    }
    std::optional<ksw::Error> error;
    if (std::optional<ksw::Dictionary> counters = connection->serverStatus(&error)) {
        return std::move(*counters);
    }
    return Complaint{
        ExitStatus::Unreachable,
        "no daemon answers" + (error ? ": " + std::string(error->localizedDescription()) : std::string())};
}

}  // namespace

ksw::ServiceConnection* Asker::connection() const {
    return road_ == Road::Manager ? KSWManager::shared().connection() : KSWRegistrar::shared().connection();
}

std::int64_t Asker::registerItem(const Subject& subject, std::shared_ptr<KSWItem>* item) const {
    return road_ == Road::Manager ? registerWith(KSWManager::shared(), subject, item)
                                  : registerWith(KSWRegistrar::shared(), subject, item);
}

std::int64_t Asker::unregisterItem(const Subject& subject) const {
    return KSWManager::shared().unregisterItemWithBundleURL(subject.bundleURL, subject.type, subject.itemURL,
                                                            subject.uid);
}

bool Asker::effectiveDisposition(const Subject& subject, std::int64_t* disposition,
                                 std::optional<ksw::Data>* LWCR) const {
    return road_ == Road::Manager ? askWith(KSWManager::shared(), subject, disposition, LWCR)
                                  : askWith(KSWRegistrar::shared(), subject, disposition, LWCR);
}

std::variant<ksw::Dictionary, ExitStatus> countersOrComplaint(ksw::ServiceConnection* connection) {
    Outcome<ksw::Dictionary> answer = countersOf(connection);
    if (const auto* complaint = std::get_if<Complaint>(&answer)) {
        return complain(*complaint);
    }
    return std::get<ksw::Dictionary>(std::move(answer));
}

std::optional<Complaint> complaintOfSilence(ksw::ServiceConnection* connection) {
    Outcome<ksw::Dictionary> answer = countersOf(connection);
    auto* complaint = std::get_if<Complaint>(&answer);
    return complaint != nullptr ? std::optional(std::move(*complaint)) : std::nullopt;
}

std::optional<ExitStatus> complainWhenSilent(ksw::ServiceConnection* connection) {
    const std::optional<Complaint> complaint = complaintOfSilence(connection);
    return complaint ? std::optional(complain(*complaint)) : std::nullopt;
}

ExitStatus complainOf(const std::optional<ksw::Error>& error, ksw::ServiceConnection* connection) {
    if (error && error->domain() == KSWErrorDomain) {
        complain(KSWErrorString(error->code()));
        return exitStatusOfCode(error->code());
    }
    if (const auto status = complainWhenSilent(connection)) {
        return *status;
    }
    complain(error ? error->description() : "the daemon gave no answer");
    return ExitStatus::Failed;
}

ExitStatus complainOfRefusal(ksw::Uid uid, std::string_view otherwise) {
    KSWManager& manager = KSWManager::shared();
    std::optional<ksw::Error> error;
    if (manager.getItemsMatching(static_cast<std::int64_t>(KSWItemTypeUserItem), uid, &error) == nullptr) {
        return complainOf(error, manager.connection());
    }
    complain(otherwise);
    return ExitStatus::Failed;
}

ExitStatus complainOfResult(std::int64_t code, ksw::ServiceConnection* connection) {
    if (code == KSWErrorGeneric) {
        if (const auto status = complainWhenSilent(connection)) {
            return *status;
        }
    }
    return complainOf(KSWErrorWithCode(code), connection);
}

std::int64_t resultCodeOf(const std::optional<ksw::Error>& error) {
    if (!error) {
        return KSWErrorNone;
    }
    return error->domain() == KSWErrorDomain ? error->code() : KSWErrorGeneric;
}

ExitStatus exitStatusOfCode(std::int64_t code) {
    switch (code) {
        case KSWErrorNone:
        case KSWErrorRecordExists:
        case KSWErrorRecordUpdated:
            return ExitStatus::Done;
        case KSWErrorRecordNotFound:
            return ExitStatus::NoSuchItem;
        case KSWErrorPermissionDenied:
            return ExitStatus::NotPermitted;
        default:
            return ExitStatus::Failed;
    }
}

}  // namespace tools::kswctl
