#include "bench/support/raw_sockets.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace ksw::bench {

bool readAll(int fd, void* buffer, std::size_t size) {
    auto* place = static_cast<char*>(buffer);
    while (size > 0) {
        const ssize_t got = ::recv(fd, place, size, 0);
        if (got <= 0) {
            return false;
        }
        place += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

void writeAll(int fd, const void* bytes, std::size_t size) {
    const auto* place = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t sent = ::send(fd, place, size, MSG_NOSIGNAL);
        if (sent <= 0) {
            std::perror("send");
            std::exit(2);
        }
        place += sent;
        size -= static_cast<std::size_t>(sent);
    }
}

RawSocket::RawSocket(Sizes sizes)
    : sizes_(sizes), buffer_(std::make_unique<char[]>(std::max(sizes.request, sizes.reply))) {
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) {
        std::perror("socketpair");
        std::exit(2);
    }
    peer_ = std::make_unique<ChildProcess>([&] {
        ::close(pair[0]);
        while (readAll(pair[1], buffer_.get(), sizes_.request)) {
            writeAll(pair[1], buffer_.get(), sizes_.reply);
        }
    });
    ::close(pair[1]);
    fd_ = pair[0];
}

RawSocket::~RawSocket() {
    ::close(fd_);
}

void RawSocket::exchange() {
    writeAll(fd_, buffer_.get(), sizes_.request);
    if (!readAll(fd_, buffer_.get(), sizes_.reply)) {
        std::exit(2);
    }
}

}  // namespace ksw::bench
