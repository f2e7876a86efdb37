// bus_connection.h: a connection to the session's message bus, for a few calls.
#pragma once

#include <chrono>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "platform/base/result.h"
#include "platform/base/unique_fd.h"
#include "platform/host/bus_message.h"

namespace ksw::host {

/// Where the session's bus listens: the first "unix:path=" of DBUS_SESSION_BUS_ADDRESS, else "bus" in
/// $XDG_RUNTIME_DIR, below the host root. Absent without either.
std::optional<std::string> sessionBusPath();

/// One thread.
class BusConnection {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    /// Connects to the bus, which must run as the calling user or as root, and introduces itself. It and all calls
    /// end before `deadline`. Error: Unreachable, WrongPeer, ReplyInvalid, Refused, ETIMEDOUT.
    static Result<BusConnection> open(const std::string& path, Deadline deadline);

    /// Calls a method and waits for its answer: a return. Errors as above; Refused names the error's name.
    Result<BusMessage> call(const BusCall& call);

private:
    BusConnection(UniqueFd socket, Deadline deadline) : socket_(std::move(socket)), deadline_(deadline) {}

    Status introduce();
    Status waitFor(short events);
    Status sendAll(Bytes bytes);
    Status receiveAll(std::span<std::uint8_t> buffer);
    Result<std::string> receiveLine();
    Result<BusMessage> receiveMessage();

    UniqueFd socket_;
    Deadline deadline_;
    std::uint32_t serial_ = 0;
};

}  // namespace ksw::host
