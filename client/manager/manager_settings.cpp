// manager_settings.cpp: what the daemon keeps about a user.

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWManager.h>

#include "client/manager/generation.h"
#include "client/manager/manager_state.h"
#include "client/protocol/manager_service.h"
#include "platform/host/log.h"

using ksw::Error;
using ksw::client::RequestActivity;
using ksw::client::sendRequest;
using ksw::host::mainLog;
namespace methods = ksw::protocol::manager;

std::shared_ptr<KSWUserSettings> KSWManager::userSettingsForUID(ksw::Uid uid) {
    const RequestActivity activity("KSWManager.userSettingsForUID");
    std::shared_ptr<KSWUserSettings> settings;
    sendRequest(
        state_->requester, methods::kFetchUserSettings,
        [&](const Error& failure) { state_->requester.logConnectionFailure(failure); },
        [&](std::int64_t code, std::shared_ptr<KSWUserSettings>&& answer) {
            if (code == KSWErrorNone) {
                settings = std::move(answer);
            } else {
                mainLog.error("%s: error fetching settings: %{public}@", "-[KSWManager userSettingsForUID:]_reply",
                              KSWErrorString(code));
            }
        },
        uid);
    if (settings != nullptr) {
        settings->setUid(uid);
    }
    return settings;
}

bool KSWManager::saveUserSettings(const std::shared_ptr<KSWUserSettings>& settings) {
    const RequestActivity activity("KSWManager.saveUserSettings");
    bool success = false;
    sendRequest(
        state_->requester, methods::kSaveUserSettings,
        [&](const Error& failure) { state_->requester.logConnectionFailure(failure); },
        [&](std::int64_t code) {
            success = code == KSWErrorNone;
            if (!success) {
                mainLog.error("%s: error saving user settings: %{public}@", "-[KSWManager saveUserSettings:]_reply",
                              KSWErrorString(code));
            } else if (settings != nullptr) {
                // The record in hand stays equal to the stored one, and can be changed and saved again.
                settings->setGeneration(ksw::client::nextGeneration(settings->generation()));
            }
        },
        settings, settings == nullptr ? ksw::Uid{0} : settings->uid());
    return success;
}
