#include "platform/host/bus_connection.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <unistd.h>

#include "platform/base/text.h"
#include "platform/base/url_parts.h"
#include "platform/host/environment.h"
#include "platform/host/host_root.h"
#include "platform/host/peer_identity.h"
#include "platform/host/sys.h"

namespace ksw::host {

namespace {

constexpr std::string_view kBusName = "org.freedesktop.DBus";
constexpr std::size_t kLineMax = 512;
/// Signals and the like that may come before an answer.
constexpr int kMessagesMax = 64;

Bytes bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

Error unreachable(std::string_view why) {
    return Error(ConnectionError::Unreachable, why);
}

std::chrono::milliseconds timeUntil(BusConnection::Deadline deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    return std::max(left, std::chrono::milliseconds(0));
}

/// The socket in one entry of an address, "TRANSPORT:KEY=VALUE,KEY=VALUE".
std::optional<std::string> pathIn(std::string_view entry) {
    constexpr std::string_view kTransport = "unix:";
    constexpr std::string_view kKey = "path=";
    if (!entry.starts_with(kTransport)) {
        return std::nullopt;
    }
    entry.remove_prefix(kTransport.size());
    while (!entry.empty()) {
        const std::string_view pair = entry.substr(0, entry.find(','));
        if (pair.starts_with(kKey)) {
            return percentDecode(pair.substr(kKey.size()));
        }
        entry.remove_prefix(std::min(pair.size() + 1, entry.size()));
    }
    return std::nullopt;
}

std::optional<std::string> pathInAddress(std::string_view address) {
    while (!address.empty()) {
        const std::string_view entry = address.substr(0, address.find(';'));
        if (std::optional<std::string> path = pathIn(entry); path && path->starts_with('/')) {
            return path;
        }
        address.remove_prefix(std::min(entry.size() + 1, address.size()));
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> sessionBusPath() {
    if (const std::optional<std::string> address = environmentVariable("DBUS_SESSION_BUS_ADDRESS")) {
        const std::optional<std::string> path = pathInAddress(*address);
        return path ? std::optional(hostPathOfNamed(*path)) : std::nullopt;
    }
    const std::optional<std::string> folder = environmentVariable("XDG_RUNTIME_DIR");
    if (!folder || !folder->starts_with('/')) {
        return std::nullopt;
    }
    return hostPathOfNamed(*folder).append("/bus");
}

Result<BusConnection> BusConnection::open(const std::string& path, Deadline deadline) {
    Result<UniqueFd> socket = sys::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK);
    if (!socket) {
        return socket.error();
    }
    if (Status status = sys::connectUnix(socket->get(), path, timeUntil(deadline)); !status) {
        return unreachable(status.error().localizedDescription());
    }
    const Result<PeerIdentity> peer = PeerIdentity::ofListener(socket->get(), path);
    if (!peer || (peer->uid() != ::geteuid() && peer->uid() != 0)) {
        return Error(ConnectionError::WrongPeer, format("\"%@\": another user listens there", path));
    }
    BusConnection connection(std::move(*socket), deadline);
    if (Status status = connection.introduce(); !status) {
        return status.error();
    }
    return connection;
}

Status BusConnection::introduce() {
    // The name of the user, in decimal digits, each written as two hexadecimal ones: 3 is 33.
    std::string greeting("\0AUTH EXTERNAL ", 15);
    for (const char digit : std::to_string(::geteuid())) {
        greeting += '3';
        greeting += digit;
    }
    greeting += "\r\n";
    if (Status status = sendAll(bytesOf(greeting)); !status) {
        return status;
    }
    const Result<std::string> line = receiveLine();
    if (!line) {
        return line.error();
    }
    if (!line->starts_with("OK ")) {
        return Error(ConnectionError::Refused, "the bus does not let this user in");
    }
    if (Status status = sendAll(bytesOf("BEGIN\r\n")); !status) {
        return status;
    }
    const Result<BusMessage> name = call({kBusName, "/org/freedesktop/DBus", kBusName, "Hello"});
    return name ? Status() : Status(name.error());
}

Result<BusMessage> BusConnection::call(const BusCall& call) {
    const std::uint32_t serial = ++serial_;
    if (Status status = sendAll(encodeBusCall(call, serial)); !status) {
        return status.error();
    }
    for (int i = 0; i < kMessagesMax; ++i) {
        Result<BusMessage> message = receiveMessage();
        if (!message) {
            return message;
        }
        if (message->replySerial != serial) {
            continue;
        }
        if (message->kind == BusMessageKind::Return) {
            return message;
        }
        return Error(ConnectionError::Refused, format("%@: %@", call.member, message->errorName));
    }
    return Error(ConnectionError::ReplyInvalid, "the bus answers everything but the question");
}

Status BusConnection::waitFor(short events) {
    pollfd waited{socket_.get(), events, 0};
    const Result<std::size_t> ready = sys::poll({&waited, 1}, timeUntil(deadline_));
    if (!ready) {
        return ready.error();
    }
    return *ready > 0 ? Status() : Status(sys::callError(ETIMEDOUT, "poll", socket_.get()));
}

Status BusConnection::sendAll(Bytes bytes) {
    while (!bytes.empty()) {
        const Result<sys::Transfer> sent = sys::send(socket_.get(), bytes.data(), bytes.size());
        if (!sent) {
            return unreachable(sent.error().localizedDescription());
        }
        bytes = bytes.subspan(sent->bytes);
        if (sent->wouldBlock) {
            if (Status status = waitFor(POLLOUT); !status) {
                return status;
            }
        }
    }
    return {};
}

Status BusConnection::receiveAll(std::span<std::uint8_t> buffer) {
    while (!buffer.empty()) {
        const Result<sys::Transfer> received = sys::receive(socket_.get(), buffer.data(), buffer.size());
        if (!received) {
            return unreachable(received.error().localizedDescription());
        }
        buffer = buffer.subspan(received->bytes);
        if (received->wouldBlock) {
            if (Status status = waitFor(POLLIN); !status) {
                return status;
            }
        } else if (received->bytes == 0) {
            return unreachable("the bus closed the connection");
        }
    }
    return {};
}

/// A line without its end. Nothing follows it before the next thing is sent, but it may come in pieces.
Result<std::string> BusConnection::receiveLine() {
    std::string line;
    while (line.size() < kLineMax) {
        std::uint8_t character = 0;
        if (Status status = receiveAll({&character, 1}); !status) {
            return status.error();
        }
        if (character == '\n') {
            return line;
        }
        line += static_cast<char>(character);
    }
    return Error(ConnectionError::ReplyInvalid, "the bus answers a line without end");
}

Result<BusMessage> BusConnection::receiveMessage() {
    Data message(kBusHeadSize);
    if (Status status = receiveAll(message); !status) {
        return status.error();
    }
    const Result<std::size_t> size = busMessageSize(message);
    if (!size) {
        return size.error();
    }
    message.resize(*size);
    if (Status status = receiveAll(std::span(message).subspan(kBusHeadSize)); !status) {
        return status.error();
    }
    return readBusMessage(message);
}

}  // namespace ksw::host
