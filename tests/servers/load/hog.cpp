#include "tests/servers/load/hog.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "client/protocol/manager_service.h"
#include "client/protocol/services.h"
#include "platform/base/limits.h"
#include "platform/ipc/body.h"
#include "platform/ipc/dialer.h"
#include "platform/ipc/frame.h"

namespace ksw::test {

namespace {

namespace methods = protocol::manager;

constexpr std::int64_t kJob = static_cast<std::int64_t>(KSWItemTypeAgent | KSWItemTypeLegacyBit);

Data question() {
    return frameOf(methods::kEffectiveDispositionOfURL, std::nullopt, kJob, jobURLOf(0), configurationOf(0),
                   ::getuid());
}

/// A job is registered and removed: both are changes, each time.
Data changes() {
    const int job = static_cast<int>(::getpid());
    Data frames =
        frameOf(methods::kRegisterItemOfURL, std::nullopt, kJob, jobURLOf(job), configurationOf(job), ::getuid());
    const Data removal = frameOf(methods::kUnregisterItemOfURL, std::nullopt, kJob, jobURLOf(job), ::getuid());
    frames.insert(frames.end(), removal.begin(), removal.end());
    return frames;
}

UniqueFd dialDaemon() {
    const auto place = ipc::servicePlace(kManagerService, ipc::Domain::System, std::nullopt);
    Result<UniqueFd> socket = ipc::dial(*place);
    return socket ? std::move(*socket) : UniqueFd();
}

}  // namespace

/// The largest request of an ordinary user, without its end.
Data Hog::startedFrame() {
    Data frame(ipc::kHeaderSize + limits::kRequestBodyMax - 1, 0x11);
    ipc::writeHeader({ipc::FrameKind::Request, limits::kRequestBodyMax, 1},
                     std::span(frame).first<ipc::kHeaderSize>());
    return frame;
}

Hog::Hog(const Greed& greed) : started_(startedFrame()), question_(question()), changes_(changes()) {
    for (std::size_t index = 0; index < greed.started; ++index) {
        add(started_, false, false);
    }
    for (std::size_t index = 0; index < greed.silent; ++index) {
        add(question_, true, false);
    }
    for (std::size_t index = 0; index < greed.busy; ++index) {
        add(changes_, true, true);
    }
}

Hog::~Hog() = default;

void Hog::add(const Data& stream, bool isEndless, bool reads) {
    connections_.push_back({dialDaemon(), &stream, isEndless, reads});
    Connection& connection = connections_.back();
    if (isEndless) {
        ::fcntl(connection.fd.get(), F_SETFL, O_NONBLOCK);
    }
    if (!reads) {
        write(connection, isEndless ? stream.size() : stream.size() / 2);
    }
}

/// Writes what the socket takes, of what is not endless up to `most` bytes; when it fails the connection is gone.
void Hog::write(Connection& connection, std::size_t most) {
    while (connection.fd && connection.sent < most) {
        const ssize_t count = ::send(connection.fd.get(), connection.stream->data() + connection.sent,
                                     most - connection.sent, MSG_NOSIGNAL);
        if (count < 0) {
            if (errno != EAGAIN) {
                connection.fd.reset();
            }
            return;
        }
        connection.sent += static_cast<std::size_t>(count);
        if (connection.isEndless) {
            connection.sent %= connection.stream->size();
        }
    }
}

void Hog::read(Connection& connection) {
    std::array<std::uint8_t, 64 * limits::kKiB> buffer{};
    const ssize_t count = ::recv(connection.fd.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count > 0) {
        answered_ += static_cast<std::size_t>(count);
    } else if (count == 0 || errno != EAGAIN) {
        connection.fd.reset();
    }
}

void Hog::goOn(const Line& line) {
    bool hasTold = false;
    while (true) {
        if (answered_ > 0 && !std::exchange(hasTold, true)) {
            line.tell();
        }
        std::vector<pollfd> waited{{line.fd(), POLLIN, 0}};
        for (const Connection& connection : connections_) {
            const int events = (connection.reads ? POLLIN : 0) | (connection.isEndless ? POLLOUT : 0);
            waited.push_back({connection.fd ? connection.fd.get() : -1, static_cast<short>(events), 0});
        }
        if (::poll(waited.data(), waited.size(), -1) < 0 || waited.front().revents != 0) {
            return;
        }
        for (std::size_t index = 0; index < connections_.size(); ++index) {
            const short events = waited[index + 1].revents;
            if ((events & POLLIN) != 0) {
                read(connections_[index]);
            }
            if ((events & POLLOUT) != 0) {
                write(connections_[index], connections_[index].stream->size());
            }
            if ((events & (POLLERR | POLLHUP)) != 0) {
                connections_[index].fd.reset();
            }
        }
    }
}

bool Hog::isAtItsLastConnection() const {
    const UniqueFd beyond = dialDaemon();
    (void)::send(beyond.get(), question_.data(), question_.size(), MSG_NOSIGNAL);
    char byte = 0;
    return beyond && ::recv(beyond.get(), &byte, 1, 0) <= 0;
}

bool Hog::reachesItsLastByte() {
    std::vector<pollfd> waited;
    for (Connection& connection : connections_) {
        if (!connection.isEndless) {
            write(connection, connection.stream->size());
            if (!connection.fd) {
                return true;
            }
            waited.push_back({connection.fd.get(), POLLRDHUP, 0});
        }
    }
    return ::poll(waited.data(), waited.size(), 60'000) > 0;
}

}  // namespace ksw::test
