// server.h: serves named services over Unix sockets: accepts, reads, dispatches, answers, and bounds what peers
// take.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/base/limits.h"
#include "platform/base/result.h"
#include "platform/ipc/connection.h"
#include "platform/ipc/dispatcher.h"

namespace ksw::ipc {

/// The bounds that a server keeps; tests set smaller ones.
struct ServerLimits {
    std::size_t connections = limits::kConnectionsMax;
    std::size_t connectionsPerUid = limits::kConnectionsPerUidMax;
    std::size_t connectionsReservedForRoot = limits::kConnectionsReservedForRoot;
    std::size_t requestsInFlight = limits::kRequestsInFlightMax;  ///< Per connection.
    std::size_t bytesPerUid = limits::kBytesPerUidMax;
    std::size_t bytesHeld = limits::kBytesHeldMax;  ///< For all users together.
    std::size_t requestBody = limits::kRequestBodyMax;
    std::size_t rootRequestBody = limits::kRootRequestBodyMax;
    std::chrono::milliseconds stall = std::chrono::seconds(limits::kStallSeconds);
    std::chrono::milliseconds launchQuestion = std::chrono::seconds(limits::kLaunchQuestionSeconds);
    std::chrono::milliseconds request = std::chrono::seconds(limits::kRequestSeconds);
    std::chrono::milliseconds longRequest = std::chrono::seconds(limits::kLongRequestSeconds);
};

struct ServerOptions {
    ServerLimits limits{};
    unsigned workers = 4;  ///< Threads that serve requests; at least 1.
};

/// What has happened since the server was made.
struct ServerCounters {
    std::uint64_t served = 0;       ///< Requests answered with a reply.
    std::uint64_t refused = 0;      ///< Requests answered with a refusal.
    std::uint64_t dropped = 0;      ///< Connections closed by the server: malformed, stalled or over a limit.
    std::uint64_t quotaHits = 0;    ///< How often a user or connection came to one of its limits.
    std::uint64_t connections = 0;  ///< Open now.
};

/// A server of any number of services. `listen` and `start` are called by one thread; the rest by any.
class Server {
public:
    explicit Server(const ServerOptions& options = {});
    /// Stops.
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Serves the service `name` with `dispatcher`, before `start`. The socket comes from the service manager
    /// (LISTEN_FDS, by the service's name), else it is bound at the name's place: the run directory is made when it
    /// is missing and a socket that nobody listens on is replaced; one that is alive is EADDRINUSE. A system
    /// service's socket admits everyone (mode 0666), a session's only its user. `targetUid`: whose session; absent:
    /// the caller's own.
    Status listen(std::string_view name, Domain domain, Dispatcher dispatcher,
                  std::optional<Uid> targetUid = std::nullopt);

    /// Starts the threads. Error: a resource that the kernel denies; the server then is as before.
    Status start();

    /// Stops accepting, closes every connection, ends the threads and removes the sockets that it has bound. Waits
    /// for handlers that run. Again: nothing. Not from a handler.
    void stop();

    ServerCounters counters() const;

private:
    class Inside;
    std::unique_ptr<Inside> inside_;
};

}  // namespace ksw::ipc
