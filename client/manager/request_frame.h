// request_frame.h: one request of a client of the management daemon, from the proxy to the callback.
// Every operation of the manager and the registrar is a few lines on top of this.
#pragma once

#include <string_view>
#include <tuple>
#include <utility>

#include <kestrelwood/values.h>

#include "platform/host/activity.h"
#include "platform/ipc/connection.h"

namespace ksw::client {

/// A client of the daemon as its requests see it.
struct Requester {
    /// The connection; null for a manager that is turned off, whose requests run no callback at all.
    ipc::Connection* connection = nullptr;
    /// The class's name as its log lines begin.
    std::string_view className;

    /// Logs that the connection failed, in the words of the class.
    void logConnectionFailure(const Error& error) const;
};

/// The activity of one request: named after the operation that the program called, so an operation that another
/// one uses opens none of its own.
class RequestActivity {
public:
    explicit RequestActivity(std::string_view name) : scope_(name, host::ActivityScope::Rule::OnlyIfNone) {}

private:
    host::ActivityScope scope_;
};

/// Sends one method and waits: exactly one of `onReply` (with the reply's arguments) and `onError` (with the
/// connection's error) has run when this returns; neither, when there is no connection.
template <class Method, class OnError, class OnReply, class... Arguments>
void sendRequest(const Requester& requester, const Method& method, OnError&& onError, OnReply&& onReply,
                 const Arguments&... arguments) {
    if (requester.connection == nullptr) {
        return;
    }
    auto reply = requester.connection->call(method, arguments...);
    if (reply) {
        std::apply(std::forward<OnReply>(onReply), std::move(*reply));
    } else {
        std::forward<OnError>(onError)(reply.error());
    }
}

}  // namespace ksw::client
