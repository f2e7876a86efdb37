// scripted_server.h: a service whose server does what a test tells it, byte for byte, over a real socket.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/ipc/body.h"
#include "platform/ipc/frame.h"
#include "platform/ipc/listener.h"
#include "platform/ipc/stream.h"

namespace ksw::test {

/// One request as it came.
struct ScriptedRequest {
    std::uint32_t serial = 0;
    std::string selector;
    Data body;
};

/// The frame around a body.
Data frameAround(ipc::FrameKind kind, std::uint32_t serial, Bytes body);

/// A connection as the script sees it. One thread.
class ScriptedConnection {
public:
    ScriptedConnection(UniqueFd fd, std::atomic<std::size_t>& received)
        : stream_(std::move(fd)), received_(received) {}

    /// The next request; absent when the client is gone. Blocks.
    std::optional<ScriptedRequest> next();
    /// Sends bytes as they are; a client that is gone is none of the script's business.
    void send(Bytes bytes);
    /// The frame of a reply with these arguments.
    template <class... R>
    static Data replyFrame(std::uint32_t serial, const R&... arguments) {
        const ipc::ArgumentSource sources[] = {ipc::sourceOf(arguments)..., {}};
        return frameOf(serial, {sources, sizeof...(R)});
    }
    template <class... R>
    void reply(std::uint32_t serial, const R&... arguments) {
        send(replyFrame(serial, arguments...));
    }
    void refuse(std::uint32_t serial, std::int64_t code, std::string_view text);

    ipc::Stream& stream() { return stream_; }

private:
    static Data frameOf(std::uint32_t serial, std::span<const ipc::ArgumentSource> sources);

    ipc::Stream stream_;
    std::atomic<std::size_t>& received_;
};

/// Listens at a service's place and runs the script for each connection, on a thread of its own. When the script
/// returns, the connection is closed.
class ScriptedServer {
public:
    using Script = std::function<void(ScriptedConnection&)>;

    ScriptedServer(std::string_view service, Script script, ipc::Domain domain = ipc::Domain::System,
                   std::optional<Uid> targetUid = std::nullopt);
    /// Closes everything and waits for the scripts.
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    /// Bytes that have come over all connections, and connections that were accepted.
    std::size_t bytesReceived() const { return received_; }
    int connections() const { return connections_; }

private:
    void acceptAll();
    void run(UniqueFd fd);

    const Script script_;
    std::optional<ipc::Listener> listener_;
    UniqueFd stop_;
    std::atomic<std::size_t> received_{0};
    std::atomic<int> connections_{0};
    std::mutex mutex_;  // guards both below
    std::vector<int> open_;
    std::vector<std::thread> scripts_;
    std::thread acceptor_;
};

}  // namespace ksw::test
