#include "platform/session/parent_apps.h"

#include <atomic>
#include <cstdint>
#include <memory>

#include <kestrelwood/KSWFunctions.h>

#include "client/protocol/notification_service.h"
#include "client/protocol/services.h"
#include "platform/base/limits.h"
#include "platform/host/file_rights.h"
#include "platform/host/log.h"
#include "platform/host/process_epoch.h"
#include "platform/ipc/connection.h"

namespace ksw::session {

namespace {

/// The requests of one process. A forked child has none of the threads, so it begins anew.
struct OfProcess {
    OfProcess(std::uint64_t processEpoch, const OfProcess* formerOne) : epoch(processEpoch), former(formerOne) {}

    const std::uint64_t epoch;
    const OfProcess* const former;  // of the process that this one was forked from; left alone
    UserRequests requests{std::chrono::seconds(limits::kUserServiceSeconds)};
};

UserRequests& requestsOfProcess() {
    static constinit std::atomic<OfProcess*> current{nullptr};  // owned, and never destroyed
    const std::uint64_t epoch = host::processEpoch();
    OfProcess* found = current.load(std::memory_order_acquire);
    while (found == nullptr || found->epoch != epoch) {
        auto fresh = std::make_unique<OfProcess>(epoch, found);
        if (current.compare_exchange_strong(found, fresh.get(), std::memory_order_acq_rel)) {
            found = fresh.release();
        }
    }
    return found->requests;
}

/// One request on a connection of its own.
Status tell(const std::string& apps, Uid uid) {
    ipc::Connection connection(kNotificationsService, {ipc::Domain::Session, uid},
                               protocol::notifications::serviceInterface());
    const auto reply = connection.call(protocol::notifications::kRegisterParentApps, apps);
    return reply ? Status() : Status(reply.error());
}

}  // namespace

void registerParentApps(const std::optional<std::string>& apps, Uid uid, UserRequests& requests) {
    if (!apps || uid == kEveryUser) {
        return;
    }
    if (const Status told = requests.run(uid, [apps = *apps, uid] { return tell(apps, uid); }); !told) {
        host::mainLog.debug("%s: uid=%d, error %@", "RegisterParentApps", uid, told.error());
    }
    if (const Uid consoleUser = ConsoleUserUID(); consoleUser != uid) {
        registerParentApps(apps, consoleUser, requests);
    }
}

}  // namespace ksw::session

void RegisterParentApps(const std::optional<std::string>& apps, ksw::Uid uid) {
    // The thread that asks the user's service has the file rights of the one that starts it.
    const ksw::host::OwnRights own;
    ksw::session::registerParentApps(apps, uid, ksw::session::requestsOfProcess());
}
