#include "servers/kestrelwoodd/state_folder.h"

#include <sys/file.h>

#include "platform/host/host_root.h"
#include "platform/host/sys_files.h"

namespace ksw::daemon {

namespace {

constexpr std::string_view kFolder = "/var/lib/kestrelwood";
constexpr std::string_view kLock = "/kestrelwoodd.lock";

/// Makes the folder when it is missing. It is on disk afterwards, also when another start made it and got no
/// further: what is kept in it would be lost with it.
Status makeFolder(const std::string& path, mode_t mode) {
    Status made = host::sys::makeDirectory(path, mode);
    if (!made && !host::sys::isErrno(made.error(), EEXIST)) {
        return made;
    }
    return host::sys::syncFolder(path.substr(0, path.rfind('/') + 1));
}

}  // namespace

Result<StateFolder> StateFolder::take() {
    for (std::size_t end = kFolder.find('/', 1); end != std::string_view::npos; end = kFolder.find('/', end + 1)) {
        if (Status made = makeFolder(host::hostPath(kFolder.substr(0, end)), 0755); !made) {
            return made.error();
        }
    }
    std::string path = host::hostPath(kFolder);
    if (Status made = makeFolder(path, 0700); !made) {
        return made.error();
    }
    const std::string lockPath = path + std::string(kLock);
    Result<UniqueFd> lock = host::sys::open(lockPath, O_RDWR | O_CREAT | O_NOFOLLOW, 0600);
    if (!lock) {
        return lock.error();
    }
    if (flock(lock->get(), LOCK_EX | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK
                   ? Error(kPosixErrorDomain, EWOULDBLOCK, lockPath + ": another kestrelwoodd has this host root")
                   : host::sys::callError(errno, "flock", lockPath);
    }
    return StateFolder(std::move(path), *std::move(lock));
}

}  // namespace ksw::daemon
