// test_service.h: a small contract, a server for it and a connection to it, in a host root of their own.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/ipc/connection.h"
#include "platform/ipc/server.h"
#include "tests/support/host_root.h"

namespace ksw::test {

inline constexpr std::string_view kTestService = "com.velmont.test";

inline constexpr ipc::Method<ipc::Reply<std::int64_t>(std::int64_t, std::int64_t)> kAdd{1, "add:to:reply:"};
inline constexpr ipc::Method<ipc::Reply<std::optional<std::string>>(std::optional<std::string>)> kEcho{
    2, "echo:reply:"};
inline constexpr ipc::Method<ipc::Reply<std::optional<Data>>(std::optional<Data>)> kEchoBytes{3,
                                                                                              "echoBytes:reply:"};
inline constexpr ipc::Method<ipc::Reply<>()> kNothing{4, "nothingWithReply:"};
inline constexpr ipc::Method<ipc::Reply<>()> kNeverAnswered{5, "neverAnsweredWithReply:"};

inline ipc::ServiceInterface testInterface() {
    return ipc::makeInterface("TestInterface", kAdd, kEcho, kEchoBytes, kNothing, kNeverAnswered);
}

/// The contract's handlers.
inline ipc::Dispatcher testDispatcher() {
    ipc::Dispatcher dispatcher;
    dispatcher.on(kAdd, [](const ipc::RequestContext&, ipc::Responder<std::int64_t> responder, std::int64_t left,
                           std::int64_t right) { responder.answer(left + right); });
    dispatcher.on(kEcho, [](const ipc::RequestContext&, ipc::Responder<std::optional<std::string>> responder,
                            const std::optional<std::string>& text) { responder.answer(text); });
    dispatcher.on(kEchoBytes, [](const ipc::RequestContext&, ipc::Responder<std::optional<Data>> responder,
                                 const std::optional<Data>& bytes) { responder.answer(bytes); });
    dispatcher.on(kNothing, [](const ipc::RequestContext&, ipc::Responder<> responder) { responder.answer(); });
    dispatcher.on(kNeverAnswered, [](const ipc::RequestContext&, const ipc::Responder<>&) {});
    return dispatcher;
}

/// A connection as the management daemon's clients have it.
inline std::unique_ptr<ipc::Connection> testConnection(ipc::Redial redial = ipc::Redial::AfterInterruption) {
    return std::make_unique<ipc::Connection>(
        kTestService, ipc::ConnectionOptions{ipc::Domain::System, std::nullopt, redial}, testInterface());
}

/// The code of a connection's error; absent for other errors and for none.
inline std::optional<ConnectionError> connectionErrorOf(const Error& error) {
    if (error.domain() != kConnectionErrorDomain) {
        return std::nullopt;
    }
    return static_cast<ConnectionError>(error.code());
}
template <class T>
std::optional<ConnectionError> connectionErrorOf(const Result<T>& result) {
    return result ? std::nullopt : connectionErrorOf(result.error());
}

/// A running server of the contract.
class TestServer {
public:
    explicit TestServer(const ipc::ServerOptions& options = {}, ipc::Dispatcher dispatcher = testDispatcher())
        : server_(options) {
        const Status listening = server_.listen(kTestService, ipc::Domain::System, std::move(dispatcher));
        EXPECT_TRUE(listening.ok()) << (listening ? "" : listening.error().description());
        const Status started = server_.start();
        EXPECT_TRUE(started.ok()) << (started ? "" : started.error().description());
    }
    ipc::Server& server() { return server_; }

private:
    ipc::Server server_;
};

}  // namespace ksw::test
