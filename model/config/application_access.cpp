#include "model/config/application_access.h"

#include <cerrno>

#include <fcntl.h>

#include <kestrelwood/KSWFunctions.h>

#include "platform/base/result.h"
#include "platform/host/file_rights.h"
#include "platform/host/home_folder.h"
#include "platform/host/log.h"
#include "platform/host/sys_call.h"
#include "platform/host/sys_files.h"

namespace ksw::config {

namespace {

constexpr Uid kNobodyAtTheConsole = 0;

Status checkAccess(Uid uid) {
    const std::optional<std::string> home = host::homeFolder(uid);
    if (!home) {
        return Error(kPosixErrorDomain, ENOENT, "the user has no account");
    }
    const Result<UniqueFd> folder =
        host::sys::open(*home + "/Applications", O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC);
    const bool isAnswer =
        folder.ok() || host::sys::isErrno(folder.error(), ENOENT) || host::sys::isErrno(folder.error(), ENOTDIR);
    return isAnswer ? Status() : Status(folder.error());
}

}  // namespace

std::optional<ApplicationAccess> ApplicationAccess::asConsoleUser(Literal function) {
    // Who sits there is the same, and has the same, for whomever a server reads files.
    const host::OwnRights own;
    const Uid uid = ConsoleUserUID();
    if (uid == kNobodyAtTheConsole) {
        return ApplicationAccess(uid);
    }
    if (const Status access = checkAccess(uid); !access) {
        host::mainLog.error("%s: failed to access almanacd for uid=%d: %{public}@", function, uid, access.error());
        return std::nullopt;
    }
    return ApplicationAccess(uid);
}

}  // namespace ksw::config
