// sys_sockets.h: socket calls. Every descriptor is close-on-exec, nothing raises SIGPIPE, interruptions are
// retried. All functions may be called from any thread.
#pragma once

#include <chrono>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include <sys/socket.h>
#include <sys/time.h>

#include "platform/base/unique_fd.h"
#include "platform/host/sys_transfer.h"

namespace ksw::host::sys {

/// A socket; `type` may have SOCK_NONBLOCK.
Result<UniqueFd> socket(int domain, int type, int protocol = 0);
/// Two connected Unix sockets.
Result<std::pair<UniqueFd, UniqueFd>> socketPair(int type);

/// Connects to the Unix socket at `path`, which may be longer than a socket address. No symbolic link is
/// followed, in any component. Waits until `timeout` at most (a full backlog blocks): then ETIMEDOUT.
/// Blocks, unless `fd` is non-blocking; then a full backlog is EAGAIN.
Status connectUnix(int fd, const std::string& path, std::chrono::milliseconds timeout);
/// Binds to a path, which may be longer than a socket address. EADDRINUSE when something is there.
Status bindUnix(int fd, const std::string& path);
Status listen(int fd, int backlog);
/// The path that a socket, or the one that it was accepted from, is bound to, as whoever bound it wrote it; empty
/// for one that is bound to none.
Result<std::string> boundPath(int fd);
/// The next connection; absent when there is none now (a non-blocking listener) or it is already gone.
/// Error: EMFILE, ENFILE, ENOMEM and whatever the kernel says; the listener stays usable.
Result<std::optional<UniqueFd>> accept(int fd, bool nonBlocking);
/// `how` as for shutdown(2): SHUT_RD, SHUT_WR, SHUT_RDWR.
Status shutdown(int fd, int how);

/// One receive or send, of at most `size` bytes; may move fewer. `flags` as for recv(2), send(2).
Result<Transfer> receive(int fd, void* buffer, std::size_t size, int flags = 0);
Result<Transfer> send(int fd, const void* bytes, std::size_t size, int flags = 0);
/// The same for messages. Descriptors that come along are the caller's to close; they are close-on-exec.
Result<Transfer> sendMessage(int fd, const msghdr& message, int flags = 0);
Result<Transfer> receiveMessage(int fd, msghdr& message, int flags = 0);

/// Option values as plain structures.
Status setOption(int fd, int level, int name, const void* value, socklen_t size);
template <class T>
Status setOption(int fd, int level, int name, const T& value) {
    return setOption(fd, level, name, &value, sizeof value);
}
/// Error: EINVAL when the kernel's value is of another size than `size`.
Status getOption(int fd, int level, int name, void* value, socklen_t size);
template <class T>
Result<T> getOption(int fd, int level, int name) {
    T value{};
    if (Status status = getOption(fd, level, name, &value, sizeof value); !status) {
        return status.error();
    }
    return value;
}

}  // namespace ksw::host::sys
