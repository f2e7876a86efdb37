#include "servers/kestrelwoodd/authority.h"

#include <chrono>
#include <memory>
#include <mutex>

#include "platform/host/authorization_service.h"
#include "platform/ipc/authorization.h"
#include "servers/kestrelwoodd/log.h"

namespace ksw::daemon {

Authority hostAuthority() {
    return [asking = std::make_shared<std::mutex>()](const AuditToken& process) {
        constexpr std::chrono::seconds kPatience(5);
        const std::unique_lock one(*asking, std::try_to_lock);
        if (!one.owns_lock()) {
            return false;
        }
        const Result<bool> isAuthorized = host::isAuthorized(process, ipc::kManageDatabaseRight, kPatience);
        if (!isAuthorized) {
            logNotice("nobody says whether a user may manage the database: " +
                      std::string(isAuthorized.error().localizedDescription()));
        }
        return isAuthorized && *isAuthorized;
    };
}

}  // namespace ksw::daemon
