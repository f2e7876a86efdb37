// plain_requests.h: requests of the manager whose log lines speak in the operation's name, and those that are
// answered with an error or nothing.
#pragma once

#include <optional>
#include <string_view>
#include <utility>

#include "client/manager/request_frame.h"

namespace ksw::client {

/// The requester, logging that the connection failed in this name instead of the class's; the name is borrowed.
inline Requester inTheNameOf(std::string_view name, const Requester& requester) {
    return {requester.connection, name};
}

/// How a request ended that is answered with an error or nothing. Without a connection it has no answer either.
struct Verdict {
    bool isAnswered = false;
    std::optional<Error> error;  ///< The answer's, else the connection's.

    bool isRefusal() const { return isAnswered && error.has_value(); }

    /// Whether the daemon did what was asked; if not, `place`, when given, receives the error.
    bool handOut(std::optional<Error>* place) && {
        const bool success = isAnswered && !error;
        if (!success && place != nullptr) {
            *place = std::move(error);
        }
        return success;
    }
};

/// Sends a method that is answered with an error or nothing, and logs when the connection failed.
template <class Method, class... Arguments>
Verdict verdictOn(const Requester& requester, const Method& method, const Arguments&... arguments) {
    Verdict verdict;
    sendRequest(
        requester, method,
        [&](const Error& failure) {
            requester.logConnectionFailure(failure);
            verdict.error = failure;
        },
        [&](std::optional<Error>&& answer) {
            verdict = {true, std::move(answer)};
        },
        arguments...);
    return verdict;
}

}  // namespace ksw::client
