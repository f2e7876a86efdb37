// manager.cpp: construction of a manager, and who it serves.

#include <algorithm>

#include <kestrelwood/KSWLaunchWarden.h>
#include <kestrelwood/KSWManager.h>

#include "client/manager/manager_state.h"
#include "client/protocol/manager_service.h"
#include "client/protocol/roster_service.h"
#include "client/protocol/services.h"
#include "client/protocol/user_data_change.h"
#include "platform/base/never_destroyed.h"
#include "platform/host/feature_flags.h"
#include "platform/host/log.h"
#include "platform/ipc/notification_center.h"
#include "platform/ipc/service.h"
#include "platform/plist/property_list.h"

using ksw::client::RequestActivity;
using ksw::client::sendRequest;

namespace {

constexpr std::int64_t kItemsMode = 0;
constexpr std::int64_t kRosterMode = 1;

std::unique_ptr<ksw::ServiceConnection> connectionForMode(std::int64_t mode) {
    const ksw::ipc::ConnectionOptions options = ksw::ipc::managementDaemonOptions();
    switch (mode) {
        case kItemsMode:
            return ksw::ipc::openService(ksw::kManagerService, options, GetManagerServiceInterface());
        case kRosterMode:
            return ksw::ipc::openService(ksw::kRosterService, options, ksw::protocol::roster::serviceInterface());
        default:
            return nullptr;
    }
}

/// Tells the manager of changes as long as it lives.
ksw::ipc::NotificationCenter::Handler changeHandler(const std::weak_ptr<KSWManager>& observer) {
    return [observer](const ksw::Notification& notification) {
        if (const std::shared_ptr<KSWManager> manager = observer.lock()) {
            manager->handleUserDataDidChangeNotification(notification);
        }
    };
}

/// A number's low 32 bits as a uid; absent for what is no number.
std::optional<ksw::Uid> uidOf(const ksw::Value& value) {
    if (const auto* number = value.as<std::int64_t>()) {
        return static_cast<ksw::Uid>(*number);
    }
    if (const auto* number = value.as<std::uint64_t>()) {
        return static_cast<ksw::Uid>(*number);
    }
    return std::nullopt;
}

}  // namespace

void ksw::client::Requester::logConnectionFailure(const Error& error) const {
    host::mainLog.error("%s: connection failed, check entitlement of the calling process. Error: %{public}@",
                        Literal{className}, error);
}

KSWManager& KSWManager::shared() {
    static ksw::NeverDestroyed<std::shared_ptr<KSWManager>> instance(initWithMode(kItemsMode));
    return **instance;
}

KSWManager& KSWManager::sharedRosterManager() {
    static ksw::NeverDestroyed<std::shared_ptr<KSWManager>> instance(initWithMode(kRosterMode));
    return **instance;
}

std::shared_ptr<KSWManager> KSWManager::initWithMode(std::int64_t mode) {
    std::shared_ptr<KSWManager> manager(new KSWManager(mode));
    if (manager->state_->isOn) {
        manager->state_->changes = ksw::ipc::NotificationCenter::of(ksw::ipc::Domain::System)
                                       .observe(std::string(KSWUserDataDidChangeNotification),
                                                changeHandler(manager), ksw::protocol::coalesced);
    }
    return manager;
}

KSWManager::KSWManager(std::int64_t mode) : state_(std::make_unique<State>()) {
    if (!ksw::host::isFeatureEnabled("Kestrelwood", "ControlAutomaticAppLaunch", ksw::plist::read)) {
        return;
    }
    state_->isOn = true;
    state_->mode = mode;
    state_->connection = connectionForMode(mode);
    state_->requester = {ksw::ipc::connectionOf(state_->connection.get()), "KSWManager"};
}

KSWManager::~KSWManager() = default;

ksw::ServiceConnection* KSWManager::connection() const {
    return state_->connection.get();
}

ksw::Dictionary KSWManager::userIdentifiersAndUIDs() {
    const RequestActivity activity("KSWManager.getuserIdentifiersAndUIDs");
    ksw::Dictionary users;
    sendRequest(
        state_->requester, ksw::protocol::manager::kFetchUserIdentifiersAndUIDs,
        [&](const ksw::Error& failure) { state_->requester.logConnectionFailure(failure); },
        [&](std::optional<ksw::Dictionary>&& answer) { users = std::move(answer).value_or(ksw::Dictionary{}); });
    return users;
}

std::vector<ksw::Uid> KSWManager::UIDs() {
    const RequestActivity activity("KSWManager.getUIDs");
    std::vector<ksw::Uid> uids;
    for (const auto& [identifier, number] : userIdentifiersAndUIDs()) {
        const std::optional<ksw::Uid> uid = uidOf(number);
        if (uid && *uid != ksw::kNoUser && *uid != ksw::kEveryUser) {
            uids.push_back(*uid);
        }
    }
    if (!uids.empty()) {
        std::sort(uids.begin(), uids.end());
        // What belongs to no single user comes first, whether the daemon named it or not.
        uids.insert(uids.begin(), ksw::kEveryUser);
    }
    return uids;
}

void KSWManager::openLoginItemsWithCompletion(std::function<void()> completion) {
    KSWLaunchWarden::sharedInstance().openLoginItemsWithCompletion(std::move(completion));
}
