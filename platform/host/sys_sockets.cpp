#include "platform/host/sys_sockets.h"

#include <algorithm>
#include <array>
#include <cstring>

#include <sys/un.h>

#include "platform/base/checked.h"
#include "platform/host/descriptor_path.h"
#include "platform/host/sys_files.h"

namespace ksw::host::sys {

namespace {

/// Vectors of one message that a shortened send copies; the kernel's own maximum is 1,024.
constexpr std::size_t kVectorsMax = 1'024;

Result<sockaddr_un> addressOf(const std::string& path, std::string_view name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        return callError(ENAMETOOLONG, name, path);
    }
    if (path.empty() || path.find('\0') != std::string::npos) {
        return callError(EINVAL, name, path);
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

Status setSendTimeout(int fd, std::chrono::microseconds timeout) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout);
    const timeval value{static_cast<time_t>(seconds.count()),
                        static_cast<suseconds_t>((timeout - seconds).count())};
    return setOption(fd, SOL_SOCKET, SO_SNDTIMEO, value);
}

/// Connects before `deadline`. An interrupted attempt has done nothing, so it starts again with what is left.
Status connectBefore(int fd, const sockaddr_un& address, const std::string& path,
                     std::chrono::steady_clock::time_point deadline) {
    while (true) {
        const auto left =
            std::chrono::duration_cast<std::chrono::microseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return callError(ETIMEDOUT, "connect", path);
        }
        if (Status status = setSendTimeout(fd, left); !status) {
            return status;
        }
        const Outcome outcome = outcomeOf(Call::Connect);
        errno = outcome.error;
        if (outcome.error == 0 && ::connect(fd, generic(address), sizeof address) == 0) {
            return setSendTimeout(fd, std::chrono::microseconds(0));
        }
        if (errno != EINTR) {
            return callError(errno, "connect", path);
        }
    }
}

}  // namespace

Result<UniqueFd> socket(int domain, int type, int protocol) {
    UniqueFd fd(
        retried(Call::Socket, [&](std::size_t) { return ::socket(domain, type | SOCK_CLOEXEC, protocol); }));
    if (!fd) {
        return callError(errno, "socket");
    }
    return fd;
}

Result<std::pair<UniqueFd, UniqueFd>> socketPair(int type) {
    std::array<int, 2> fds{-1, -1};
    if (retried(Call::SocketPair,
                [&](std::size_t) { return ::socketpair(AF_UNIX, type | SOCK_CLOEXEC, 0, fds.data()); }) < 0) {
        return callError(errno, "socketpair");
    }
    return std::pair(UniqueFd(fds[0]), UniqueFd(fds[1]));
}

Status connectUnix(int fd, const std::string& path, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    const Result<UniqueFd> place = openWithoutLinks(path, O_PATH);
    if (!place) {
        return callError(static_cast<int>(place.error().code()), "connect", path);
    }
    const Result<sockaddr_un> address = addressOf(descriptorPath(place->get()), "connect");
    if (!address) {
        return address.error();
    }
    Status status = connectBefore(fd, *address, path, deadline);
    const bool ranOut = !status && isErrno(status.error(), EAGAIN) && std::chrono::steady_clock::now() >= deadline;
    return ranOut ? Status(callError(ETIMEDOUT, "connect", path)) : status;
}

Status bindUnix(int fd, const std::string& path) {
    std::string shortPath = path;
    UniqueFd folder;
    if (path.size() >= sizeof(sockaddr_un::sun_path)) {
        const std::size_t slash = path.rfind('/');
        if (slash == std::string::npos) {
            return callError(ENAMETOOLONG, "bind", path);
        }
        Result<UniqueFd> opened = open(path.substr(0, slash + 1), O_PATH | O_DIRECTORY);
        if (!opened) {
            return opened.error();
        }
        folder = std::move(*opened);
        shortPath = descriptorPath(folder.get()) + path.substr(slash);
    }
    const Result<sockaddr_un> address = addressOf(shortPath, "bind");
    if (!address) {
        return address.error();
    }
    if (retried(Call::Bind, [&](std::size_t) { return ::bind(fd, generic(*address), sizeof *address); }) < 0) {
        return callError(errno, "bind", path);
    }
    return {};
}

Status listen(int fd, int backlog) {
    if (retried(Call::Listen, [&](std::size_t) { return ::listen(fd, backlog); }) < 0) {
        return callError(errno, "listen", fd);
    }
    return {};
}

Result<std::string> boundPath(int fd) {
    sockaddr_un address{};
    socklen_t size = sizeof address;
    if (retried(Call::GetSockName,
                [&](std::size_t) { return ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size); }) < 0) {
        return callError(errno, "getsockname", fd);
    }
    if (address.sun_family != AF_UNIX) {
        return std::string();
    }
    return std::string(address.sun_path, ::strnlen(address.sun_path, sizeof address.sun_path));
}

Result<std::optional<UniqueFd>> accept(int fd, bool nonBlocking) {
    const int flags = SOCK_CLOEXEC | (nonBlocking ? SOCK_NONBLOCK : 0);
    UniqueFd accepted(retried(Call::Accept, [&](std::size_t) { return ::accept4(fd, nullptr, nullptr, flags); }));
    if (accepted) {
        return std::optional<UniqueFd>(std::move(accepted));
    }
    if (errno == EAGAIN || errno == EWOULDBLOCK || errno == ECONNABORTED) {
        return std::optional<UniqueFd>();
    }
    return callError(errno, "accept", fd);
}

Status shutdown(int fd, int how) {
    if (retried(Call::Shutdown, [&](std::size_t) { return ::shutdown(fd, how); }) < 0) {
        return callError(errno, "shutdown", fd);
    }
    return {};
}

Result<Transfer> receive(int fd, void* buffer, std::size_t size, int flags) {
    const ssize_t returned = retried(
        Call::Recv, [&](std::size_t lengthMax) { return ::recv(fd, buffer, std::min(size, lengthMax), flags); });
    return transferOf(returned, "recv", fd);
}

Result<Transfer> send(int fd, const void* bytes, std::size_t size, int flags) {
    const ssize_t returned = retried(Call::Send, [&](std::size_t lengthMax) {
        return ::send(fd, bytes, std::min(size, lengthMax), flags | MSG_NOSIGNAL);
    });
    return transferOf(returned, "send", fd);
}

namespace {

/// A message's vectors cut to `length` bytes.
class CutMessage {
public:
    CutMessage(const msghdr& message, std::size_t length) : message_(message) {
        message_.msg_iov = vectors_.data();
        message_.msg_iovlen = 0;
        for (std::size_t i = 0; i < std::min(message.msg_iovlen, vectors_.size()) && length > 0; ++i) {
            vectors_[i] = {message.msg_iov[i].iov_base, std::min(message.msg_iov[i].iov_len, length)};
            length -= vectors_[i].iov_len;
            ++message_.msg_iovlen;
        }
    }
    msghdr& message() { return message_; }

private:
    std::array<iovec, kVectorsMax> vectors_{};
    msghdr message_;
};

}  // namespace

Result<Transfer> sendMessage(int fd, const msghdr& message, int flags) {
    const ssize_t returned = retried(Call::SendMsg, [&](std::size_t lengthMax) {
        return lengthMax == SIZE_MAX
                   ? ::sendmsg(fd, &message, flags | MSG_NOSIGNAL)
                   : ::sendmsg(fd, &CutMessage(message, lengthMax).message(), flags | MSG_NOSIGNAL);
    });
    return transferOf(returned, "sendmsg", fd);
}

Result<Transfer> receiveMessage(int fd, msghdr& message, int flags) {
    const ssize_t returned = retried(Call::RecvMsg, [&](std::size_t lengthMax) {
        if (lengthMax == SIZE_MAX) {
            return ::recvmsg(fd, &message, flags | MSG_CMSG_CLOEXEC);
        }
        CutMessage cut(message, lengthMax);
        const ssize_t received = ::recvmsg(fd, &cut.message(), flags | MSG_CMSG_CLOEXEC);
        message.msg_namelen = cut.message().msg_namelen;
        message.msg_controllen = cut.message().msg_controllen;
        message.msg_flags = cut.message().msg_flags;
        return received;
    });
    return transferOf(returned, "recvmsg", fd);
}

Status setOption(int fd, int level, int name, const void* value, socklen_t size) {
    if (retried(Call::SetSockOpt, [&](std::size_t) { return ::setsockopt(fd, level, name, value, size); }) < 0) {
        return callError(errno, "setsockopt", fd);
    }
    return {};
}

Status getOption(int fd, int level, int name, void* value, socklen_t size) {
    socklen_t actual = size;
    if (retried(Call::GetSockOpt, [&](std::size_t) { return ::getsockopt(fd, level, name, value, &actual); }) < 0) {
        return callError(errno, "getsockopt", fd);
    }
    if (actual != size) {
        return callError(EINVAL, "getsockopt", fd);
    }
    return {};
}

}  // namespace ksw::host::sys
