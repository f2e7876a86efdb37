#include "platform/ipc/listener.h"

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/base/text.h"
#include "platform/host/host_root.h"
#include "platform/host/sys.h"
#include "platform/ipc/dialer.h"

namespace ksw::ipc {

namespace {

constexpr int kBacklog = 4096;
/// The first descriptor that a service manager hands over.
constexpr int kFirstHandedOver = 3;
constexpr mode_t kSystemFolderMode = 0755;
constexpr mode_t kSessionFolderMode = 0700;
constexpr mode_t kSystemSocketMode = 0666;
constexpr mode_t kSessionSocketMode = 0600;

std::optional<long> numberFromEnvironment(const char* name) {
    const char* given = ::secure_getenv(name);
    if (given == nullptr) {
        return std::nullopt;
    }
    const std::string_view text(given);
    long number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    return failure == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

/// The descriptor that the service manager has handed over under this name; -1 when there is none.
int handedOver(std::string_view name) {
    const std::optional<long> pid = numberFromEnvironment("LISTEN_PID");
    const std::optional<long> count = numberFromEnvironment("LISTEN_FDS");
    const char* given = ::secure_getenv("LISTEN_FDNAMES");
    if (pid != ::getpid() || !count || given == nullptr) {
        return -1;
    }
    std::string_view names(given);
    for (int index = 0; index < *count && index < kBacklog; ++index) {
        const std::size_t end = names.find(':');
        if (names.substr(0, end) == name) {
            return kFirstHandedOver + index;
        }
        if (end == std::string_view::npos) {
            break;
        }
        names.remove_prefix(end + 1);
    }
    return -1;
}

/// Makes a descriptor that was handed over ours: it must listen.
Result<UniqueFd> adopt(int fd) {
    const Result<int> isListening = host::sys::getOption<int>(fd, SOL_SOCKET, SO_ACCEPTCONN);
    if (!isListening) {
        return isListening.error();
    }
    if (*isListening == 0) {
        return host::sys::callError(EINVAL, "listen", fd);
    }
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0 || ::fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) {
        return host::sys::callError(errno, "fcntl", fd);
    }
    return UniqueFd(fd);
}

/// Makes a folder and those above it that are missing.
Status makeFolders(const std::string& path, mode_t mode) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        const Status status = host::sys::makeDirectory(path.substr(0, slash), kSystemFolderMode);
        if (!status && !host::sys::isErrno(status.error(), EEXIST)) {
            return status;
        }
    }
    Status status = host::sys::makeDirectory(path, mode);
    return !status && host::sys::isErrno(status.error(), EEXIST) ? Status() : status;
}

/// Whether somebody accepts connections at the path.
bool isAlive(const std::string& path) {
    const Result<UniqueFd> socket = host::sys::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK);
    if (!socket) {
        return true;
    }
    const Status status = host::sys::connectUnix(socket->get(), path, std::chrono::seconds(1));
    return status ||
           !(host::sys::isErrno(status.error(), ECONNREFUSED) || host::sys::isErrno(status.error(), ENOENT));
}

/// Binds beside the place and moves there when everything is right, so that no client meets half a server.
Status bindAt(int fd, const std::string& path, mode_t mode) {
    if (isAlive(path)) {
        return host::sys::callError(EADDRINUSE, "bind", path);
    }
    const std::string beside = format("%@.%ld", path, static_cast<long>(::getpid()));
    (void)host::sys::unlink(beside);  // left by a process that had our pid and died here
    if (Status status = host::sys::bindUnix(fd, beside); !status) {
        return status;
    }
    Status status = host::sys::changeMode(beside, mode);
    if (status) {
        status = host::sys::listen(fd, kBacklog);
    }
    if (status) {
        status = host::sys::rename(beside, path);
    }
    if (!status) {
        (void)host::sys::unlink(beside);
    }
    return status;
}

std::uint64_t inodeAt(const std::string& path) {
    const Result<struct ::statx> facts = host::sys::statx(path, AT_SYMLINK_NOFOLLOW, STATX_INO);
    return facts ? facts->stx_ino : 0;
}

}  // namespace

Result<Listener> Listener::open(std::string_view name, Domain domain, std::optional<Uid> targetUid) {
    const Result<ServicePlace> place = servicePlace(name, domain, targetUid);
    if (!place) {
        return host::sys::callError(EINVAL, "bind", std::string(name));
    }
    if (const int fd = handedOver(name); fd >= 0) {
        Result<UniqueFd> adopted = adopt(fd);
        if (!adopted) {
            return adopted.error();
        }
        return Listener(std::move(*adopted), {}, 0);
    }
    const bool isSystem = domain == Domain::System;
    const std::string folder = place->path.substr(0, place->path.rfind('/'));
    if (Status status = makeFolders(folder, isSystem ? kSystemFolderMode : kSessionFolderMode); !status) {
        return status.error();
    }
    Result<UniqueFd> socket = host::sys::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK);
    if (!socket) {
        return socket.error();
    }
    const mode_t mode = isSystem ? kSystemSocketMode : kSessionSocketMode;
    if (Status status = bindAt(socket->get(), place->path, mode); !status) {
        return status.error();
    }
    return Listener(std::move(*socket), place->path, inodeAt(place->path));
}

Listener::Listener(UniqueFd fd, std::string boundPath, std::uint64_t inode)
    : fd_(std::move(fd)), boundPath_(std::move(boundPath)), inode_(inode) {}

Listener::Listener(Listener&& other) noexcept
    : fd_(std::move(other.fd_)), boundPath_(std::exchange(other.boundPath_, {})), inode_(other.inode_) {}

Listener::~Listener() {
    if (!boundPath_.empty() && inodeAt(boundPath_) == inode_) {
        (void)host::sys::unlink(boundPath_);
    }
}

}  // namespace ksw::ipc
