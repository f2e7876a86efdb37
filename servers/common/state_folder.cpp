#include "servers/common/state_folder.h"

#include <sys/file.h>

#include "platform/host/sys_files.h"

namespace ksw::servers {

namespace {

/// Makes the folder when it is missing. It is on disk afterwards, also when another start made it and got no
/// further: what is kept in it would be lost with it. A folder that was there and may not be read is not ours.
Status makeFolder(const std::string& path, mode_t mode) {
    Status made = host::sys::makeDirectory(path, mode);
    if (!made && !host::sys::isErrno(made.error(), EEXIST)) {
        return made;
    }
    Status synchronised = host::sys::syncFolder(path.substr(0, path.rfind('/') + 1));
    const bool isOthers = !made && !synchronised && host::sys::isErrno(synchronised.error(), EACCES);
    return isOthers ? Status() : synchronised;
}

}  // namespace

Result<StateFolder> StateFolder::take(const std::string& base, std::string_view place, std::string_view program,
                                      mode_t mode) {
    for (std::size_t end = place.find('/', 1); end != std::string_view::npos; end = place.find('/', end + 1)) {
        if (Status made = makeFolder(base + std::string(place.substr(0, end)), mode); !made) {
            return made.error();
        }
    }
    std::string path = base + std::string(place);
    if (Status made = makeFolder(path, 0700); !made) {
        return made.error();
    }
    const std::string lockPath = path + "/" + std::string(program) + ".lock";
    Result<UniqueFd> lock = host::sys::open(lockPath, O_RDWR | O_CREAT | O_NOFOLLOW, 0600);
    if (!lock) {
        return lock.error();
    }
    if (flock(lock->get(), LOCK_EX | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK ? Error(kPosixErrorDomain, EWOULDBLOCK,
                                            lockPath + ": another " + std::string(program) + " has this folder")
                                    : host::sys::callError(errno, "flock", lockPath);
    }
    return StateFolder(std::move(path), *std::move(lock));
}

}  // namespace ksw::servers
