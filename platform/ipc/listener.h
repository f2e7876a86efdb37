// listener.h: a service's listening socket.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/base/result.h"
#include "platform/base/unique_fd.h"
#include "platform/ipc/connection.h"

namespace ksw::ipc {

/// Owns a listening socket, and its place in the file system when it has bound it itself. Moves.
class Listener {
public:
    /// Takes the service's socket from the service manager (LISTEN_PID, LISTEN_FDS, LISTEN_FDNAMES), else binds it
    /// at its place: makes the run directory when it is missing, replaces a socket that nobody listens on. Error:
    /// POSIX; EADDRINUSE when a server is alive there, EINVAL for what is no service's name.
    static Result<Listener> open(std::string_view name, Domain domain, std::optional<Uid> targetUid);

    Listener(Listener&& other) noexcept;
    Listener& operator=(Listener&&) = delete;
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    /// Removes the socket that it has bound, unless another has taken its place.
    ~Listener();

    int fd() const { return fd_.get(); }

private:
    Listener(UniqueFd fd, std::string boundPath, std::uint64_t inode);

    UniqueFd fd_;
    std::string boundPath_;  // empty when the socket was handed over
    std::uint64_t inode_ = 0;
};

}  // namespace ksw::ipc
