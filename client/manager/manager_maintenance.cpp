// manager_maintenance.cpp: the daemon's database, and the switch that has every notification posted.

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWManager.h>

#include "client/manager/manager_state.h"
#include "client/manager/plain_requests.h"
#include "client/manager/shared_requests.h"
#include "client/protocol/manager_service.h"
#include "platform/host/log.h"

using ksw::Error;
using ksw::client::inTheNameOf;
using ksw::client::RequestActivity;
using ksw::client::Requester;
using ksw::client::sendRequest;
using ksw::host::mainLog;
namespace methods = ksw::protocol::manager;

namespace {

constexpr double kGarbageCollectionDelay = 5.0;  // seconds: those who remove several things remove them first

ksw::protocol::Authorization bytesOf(const std::optional<ksw::Authorization>& authorization) {
    return authorization ? std::optional(authorization->serialized()) : std::nullopt;
}

}  // namespace

bool KSWManager::scheduleGarbageCollection() {
    std::int64_t code = KSWErrorGeneric;
    sendRequest(
        state_->requester, methods::kScheduleGarbageCollection, ksw::client::logItemConnectionFailure,
        [&](std::int64_t answer) { code = answer; }, kGarbageCollectionDelay);
    return code == KSWErrorNone;
}

std::optional<std::string> KSWManager::dumpDatabaseWithAuthorization(
    const std::optional<ksw::Authorization>& authorization, ErrorPlace errorOut) {
    const Requester requester = inTheNameOf("dumpDatabase", state_->requester);
    std::optional<std::string> text;
    std::optional<Error> error;
    sendRequest(
        requester, methods::kDumpDatabase,
        [&](const Error& failure) {
            requester.logConnectionFailure(failure);
            error = failure;
        },
        [&](std::optional<std::string>&& answer, std::optional<Error>&& refusal) {
            text = std::move(answer);
            error = std::move(refusal);
        },
        bytesOf(authorization));
    if (error && errorOut != nullptr) {
        *errorOut = std::move(error);
    }
    return text;
}

bool KSWManager::eraseDatabaseWithAuthorization(const std::optional<ksw::Authorization>& authorization,
                                                ErrorPlace error) {
    const RequestActivity activity("KSWManager.eraseDatabase");
    mainLog.notice("eraseDatabase: erasing the KSW database");
    return verdictOn(inTheNameOf("eraseDatabase", state_->requester), methods::kEraseDatabase,
                     bytesOf(authorization))
        .handOut(error);
}

bool KSWManager::setAlwaysPostNotifications(bool always) {
    mainLog.notice("setAlwaysPostNotifications: %{bool}d", always);
    const Requester requester = inTheNameOf("setAlwaysPostNotifications", state_->requester);
    bool success = false;
    sendRequest(
        requester, methods::kSetAlwaysPostNotifications,
        [&](const Error& failure) { requester.logConnectionFailure(failure); },
        [&](bool answer) { success = answer; }, always);
    return success;
}

bool KSWManager::getAlwaysPostNotifications(bool* always) {
    mainLog.notice("getAlwaysPostNotifications:");
    const Requester requester = inTheNameOf("getAlwaysPostNotifications", state_->requester);
    bool success = false;
    sendRequest(
        requester, methods::kGetAlwaysPostNotifications,
        [&](const Error& failure) { requester.logConnectionFailure(failure); },
        [&](bool answer) {
            *always = answer;
            success = true;
        });
    return success;
}

void KSWManager::handleNotificationResponseWithIdentifier(const std::optional<std::string>& identifier,
                                                          const std::optional<std::string>& action) {
    mainLog.debug("%s: identifier=%{public}@, action=%{public}@",
                  "-[KSWManager handleNotificationResponseWithIdentifier:action:]", identifier, action);
}
