// connection.h: a client's connection to a named service: typed requests out, replies back.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "platform/base/result.h"
#include "platform/ipc/interface.h"
#include "platform/ipc/method.h"
#include "platform/ipc/wire_objects.h"
#include "platform/ipc/wire_types.h"

namespace ksw::ipc {

/// Where a service's name is looked up.
enum class Domain : std::uint8_t {
    System,   ///< The system's; its server runs as uid 0.
    Session,  ///< The caller's session, or that of `ConnectionOptions::targetUid`; its server runs as that user.
};

/// What a request does when an earlier one lost its server.
enum class Redial : std::uint8_t {
    UntilReached,       ///< Dials until a server was reached once; after an interruption later requests fail.
    AfterInterruption,  ///< The next request dials again.
};

/// Where the handlers of asynchronous requests run.
enum class Handlers : std::uint8_t {
    OnOwnThread,  ///< On a thread of the connection's, which starts with the first asynchronous request.
    OnCallers,    ///< On the thread that calls `runHandlers`, and nowhere else; that thread reads for them too.
};

struct ConnectionOptions {
    Domain domain = Domain::Session;
    std::optional<Uid> targetUid{};  ///< Whose session; absent: the caller's own. Not for the system domain.
    Redial redial = Redial::UntilReached;
    Handlers handlers = Handlers::OnOwnThread;
};

/// The options of the management daemon's connections: system domain, a restarted daemon is found again.
constexpr ConnectionOptions managementDaemonOptions() {
    return {Domain::System, std::nullopt, Redial::AfterInterruption};
}

/// The key in a refusal's user information under which the server's own code stands (integer).
inline constexpr std::string_view kRefusalCodeKey = "KSWRefusalCode";

/// A connection to one service. Any number of threads may use it at once.
///
/// Nothing happens before the first request, which dials. A request is never repeated or timed out: it ends with
/// its reply, or with an error of kConnectionErrorDomain (a `ConnectionError`) when there is none. After a fork the
/// child's first request dials a connection of its own.
class Connection {
public:
    Connection(std::string_view serviceName, const ConnectionOptions& options, ServiceInterface interface);
    /// Ends the connection: requests in flight fail with Invalidated. Waits for a handler that is running, unless
    /// it is that handler which destroys the connection. No thread may be in `call`.
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// Ends the connection for good, while other threads may still use it: requests in flight fail with
    /// Invalidated, and so do later ones. Any thread; waits for a request that is being written.
    void end();

    const std::string& serviceName() const;
    const ServiceInterface& interface() const;

    /// Sends one request and waits for its end, on the calling thread: blocks for as long as the server takes.
    /// The reply's arguments, or the connection's error.
    template <class... R, class... A>
    Result<std::tuple<R...>> call(const Method<Reply<R...>(A...)>& method,
                                  const std::type_identity_t<A>&... arguments) {
        const ArgumentSource sources[] = {sourceOf(arguments)..., {}};
        std::tuple<R...> reply;
        Status status = placesOf(reply, [&](std::span<const ArgumentPlace> places) {
            return exchange({method.selector, {sources, sizeof...(A)}}, {places, method.replyClasses});
        });
        if (!status) {
            return status.error();
        }
        return reply;
    }

    /// Sends one request and returns. `handler` runs exactly once, with what `call` would have returned, on the
    /// connection's own thread, one handler at a time, in the order in which the replies arrive. (When that thread
    /// cannot be started, it runs on the caller's before this returns.) It may use the connection. It must not
    /// throw. With Handlers::OnCallers it runs in `runHandlers`, or in the destructor.
    template <class... R, class... A>
    void callAsync(const Method<Reply<R...>(A...)>& method,
                   std::type_identity_t<std::function<void(Result<std::tuple<R...>>)>> handler,
                   const std::type_identity_t<A>&... arguments) {
        const ArgumentSource sources[] = {sourceOf(arguments)..., {}};
        post({method.selector, {sources, sizeof...(A)}},
             [handler = std::move(handler), classes = method.replyClasses](Result<Bytes> body) {
                 if (!body) {
                     handler(body.error());
                     return;
                 }
                 std::tuple<R...> reply;
                 Status status = placesOf(reply, [&](std::span<const ArgumentPlace> places) {
                     return decodeReply(*body, {places, classes});
                 });
                 if (status) {
                     handler(std::move(reply));
                 } else {
                     handler(status.error());
                 }
             });
    }

    // With Handlers::OnCallers; for one thread, which waits for the answers of asynchronous requests beside other
    // things and needs no second thread that would wake it.

    /// What is readable when answers may have come; -1 before the first request has reached a server. Good until
    /// the next request.
    int answersFd();
    /// Reads once for asynchronous requests; blocks until something comes, if one is in flight. Runs no handler.
    void readAnswers();
    /// Runs the handlers of asynchronous requests that are over, whoever has read their answers.
    void runHandlers();

private:
    struct State;
    struct Outgoing {
        std::string_view selector;
        std::span<const ArgumentSource> arguments;
    };
    struct Expected {
        std::span<const ArgumentPlace> places;
        std::span<const ReplyClasses> classes;
    };
    using BodyHandler = std::function<void(Result<Bytes>)>;

    template <class... R, class Use>
    static Status placesOf(std::tuple<R...>& reply, Use use) {
        return std::apply(
            [&](R&... slots) {
                const ArgumentPlace places[] = {placeOf(slots)..., {}};
                return use(std::span<const ArgumentPlace>{places, sizeof...(R)});
            },
            reply);
    }

    Status exchange(const Outgoing& request, const Expected& expected);
    void post(const Outgoing& request, BodyHandler handler);
    static Status decodeReply(Bytes body, const Expected& expected);
    State& current();
    void runHandlersOf(State& state) const;

    // Constant after construction.
    const std::string serviceName_;
    const ConnectionOptions options_;
    const ServiceInterface interface_;

    std::atomic<State*> state_{nullptr};  // owned; null before the first request, replaced in a forked child
};

}  // namespace ksw::ipc
