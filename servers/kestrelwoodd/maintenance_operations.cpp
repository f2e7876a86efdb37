// The requests about all that is kept: what is left over goes, everything is shown, everything goes.
#include <chrono>
#include <new>
#include <system_error>

#include <kestrelwood/KSWErrors.h>

#include "platform/ipc/authorization.h"
#include "servers/kestrelwoodd/dump.h"
#include "servers/kestrelwoodd/garbage.h"
#include "servers/kestrelwoodd/housekeeping.h"
#include "servers/kestrelwoodd/log.h"

namespace ksw::daemon {

Report Housekeeping::scheduleCollection(const Caller& /*caller*/, const double& delay) try {
    if (!(delay >= 0 && delay <= kCollectionDelayMax)) {
        return reportOf(KSWErrorInvalidParameter);
    }
    collector_.schedule(std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(delay)));
    return {};
} catch (const std::system_error&) {
    return reportOf(KSWErrorGeneric);
}

void Housekeeping::collect() try {
    std::vector<std::string> folders;
    {
        const std::lock_guard lock(mutex_);
        folders.assign(scanned_.begin(), scanned_.end());
    }
    const Outcome outcome = registry_.removeGone(goneRecords(registry_.records(), folders));
    for (const protocol::UserDataChange& change : outcome.changes) {
        announce_(change, 0, ipc::Audience::Others);
    }
} catch (const std::bad_alloc&) {
    logError("no memory to collect what is left over");
}

Report Housekeeping::noteLogout(const Caller& /*caller*/, const Uid& uid) {
    if (uid == kNoUser || uid == kEveryUser) {
        return reportOf(KSWErrorInvalidParameter);
    }
    operations_.forgetLists(uid);
    return {};
}

bool Housekeeping::mayMaintain(const Caller& caller, const std::optional<Data>& authorization) const {
    return caller.isAdministrator() ||
           (ipc::checkAuthorization(authorization, caller.process).ok() && authority_(caller.process));
}

Report Housekeeping::dump(const Caller& caller, const std::optional<Data>& authorization) {
    if (!mayMaintain(caller, authorization)) {
        return reportOf(KSWErrorPermissionDenied);
    }
    Report report;
    report.text = dumpOf(registry_.records());
    return report;
}

Report Housekeeping::erase(const Caller& caller, const std::optional<Data>& authorization) {
    if (!mayMaintain(caller, authorization)) {
        return reportOf(KSWErrorPermissionDenied);
    }
    logNotice("user " + std::to_string(caller.uid) + " erases all records");
    return reportOf(registry_.erase());
}

}  // namespace ksw::daemon
