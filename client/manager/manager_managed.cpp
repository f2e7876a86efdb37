// manager_managed.cpp: what device management and the service manager tell the daemon.

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWManager.h>

#include "client/manager/manager_state.h"
#include "client/manager/plain_requests.h"
#include "client/protocol/manager_service.h"
#include "platform/host/log.h"

using ksw::Error;
using ksw::Literal;
using ksw::client::inTheNameOf;
using ksw::client::RequestActivity;
using ksw::client::Requester;
using ksw::client::sendRequest;
using ksw::client::Verdict;
using ksw::host::mainLog;
namespace methods = ksw::protocol::manager;

namespace {

using Text = std::optional<std::string>;

/// Sends a method about a managed job, which `operation` names in the log.
template <class Method>
bool manageJob(const Requester& requester, const Method& method, Literal operation, const Text& job,
               std::optional<Error>* error) {
    Verdict verdict = verdictOn(inTheNameOf(operation.text, requester), method, job);
    if (verdict.isRefusal()) {
        mainLog.error("%s: error: %{public}@", operation, verdict.error);
    }
    return std::move(verdict).handOut(error);
}

/// Sends a method that nobody waits for an answer of, but that it has arrived.
template <class Method>
void note(const Requester& requester, const Method& method, const Text& path) {
    sendRequest(
        requester, method, [&](const Error& failure) { requester.logConnectionFailure(failure); }, [] {}, path);
}

}  // namespace

std::optional<ksw::Dictionary> KSWManager::mdmPayloadForIdentifier(const Text& identifier) {
    const RequestActivity activity("KSWManager.fetchMDMPayload");
    mainLog.debug("fetchMDMPayload: identifier=%{public}@", identifier);
    const Requester requester = inTheNameOf("fetchMDMPayload", state_->requester);
    std::optional<ksw::Dictionary> payload;
    sendRequest(
        requester, methods::kMDMPayload, [&](const Error& failure) { requester.logConnectionFailure(failure); },
        [&](std::optional<ksw::Dictionary>&& answer) { payload = std::move(answer); }, identifier);
    return payload;
}

void KSWManager::setMDMPayload(const std::optional<ksw::Dictionary>& payload, const Text& identifier,
                               bool updateImmediately) {
    const RequestActivity activity("KSWManager.setMDMPayload");
    mainLog.debug("setMDMPayload: identifier=%{public}@", identifier);
    const Verdict verdict = verdictOn(inTheNameOf("setMDMPayload", state_->requester), methods::kSetMDMPayload,
                                      payload, identifier, updateImmediately);
    if (verdict.isRefusal()) {
        mainLog.error("setMDMPayload: error: %{public}@", verdict.error);
    }
}

void KSWManager::setMDMPayload(const std::optional<ksw::Dictionary>& payload, const Text& identifier) {
    setMDMPayload(payload, identifier, /*updateImmediately=*/false);
}

void KSWManager::refreshManagedItems() {}

bool KSWManager::submitManagedJobAtPath(const Text& path, ErrorPlace error) {
    const RequestActivity activity("KSWManager.submitManagedJobAtPath");
    mainLog.debug("submitManagedJobAtPath: jobPath=%{public}@", path);
    return manageJob(state_->requester, methods::kSubmitManagedJob, Literal{"submitManagedJobAtPath"}, path, error);
}

bool KSWManager::removeManagedJobAtPath(const Text& path, ErrorPlace error) {
    const RequestActivity activity("KSWManager.removeManagedJobAtPath");
    mainLog.debug("removeManagedJobAtPath: jobPath=%{public}@", path);
    return manageJob(state_->requester, methods::kRemoveManagedJobAtPath, Literal{"removeManagedJobAtPath"}, path,
                     error);
}

bool KSWManager::removeManagedJobWithLabel(const Text& label, ErrorPlace error) {
    const RequestActivity activity("KSWManager.removeManagedJobWithLabel");
    mainLog.debug("removeManagedJobWithLabel: label=%{public}@", label);
    return manageJob(state_->requester, methods::kRemoveManagedJobWithLabel, Literal{"removeManagedJobWithLabel"},
                     label, error);
}

void KSWManager::stewardWillScanPath(const Text& path) {
    note(state_->requester, methods::kStewardWillScanPath, path);
}

void KSWManager::stewardDidScanPath(const Text& path) {
    note(state_->requester, methods::kStewardDidScanPath, path);
}

void KSWManager::noteLogoutForUID(ksw::Uid uid) {
    const Requester requester = inTheNameOf("noteLogoutForUID", state_->requester);
    sendRequest(
        requester, methods::kNoteLogout, [&](const Error& failure) { requester.logConnectionFailure(failure); },
        [&](std::int64_t code) {
            if (code != KSWErrorNone) {
                mainLog.error("noteLogoutForUID: uid=%d, error: %@", uid, KSWErrorString(code));
            }
        },
        uid);
}
