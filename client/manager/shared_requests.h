// shared_requests.h: the requests that the manager and the registrar have in common, and the forms that one
// operation has for an application's URL and for a process.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWFetchResult.h>
#include <kestrelwood/KSWItem.h>
#include <kestrelwood/KSWTypes.h>

#include "client/manager/request_frame.h"
#include "client/protocol/manager_service.h"
#include "platform/host/log.h"

namespace ksw::client {

/// What is asked about: an item named by its owner (an application's URL or a process) and its own facts.
/// Borrows everything for the length of a request.
template <class Owner>
struct Subject {
    const std::optional<Owner>& owner;
    std::int64_t type;
    const std::optional<URL>& relativeURL;
    const std::optional<Dictionary>& configuration;
    Uid uid;
};

/// A disposition whose text is made only when a log line is written.
struct DispositionText {
    KSWDisposition disposition;
    std::string description() const { return KSWDispositionDescription(disposition); }
};

using Result = std::shared_ptr<KSWFetchResult>;

/// Sends a method that takes the whole subject.
template <class Method, class Owner, class OnError, class OnReply>
void sendAbout(const Requester& requester, const Method& method, const Subject<Owner>& subject, OnError&& onError,
               OnReply&& onReply) {
    sendRequest(requester, method, std::forward<OnError>(onError), std::forward<OnReply>(onReply), subject.owner,
                subject.type, subject.relativeURL, subject.configuration, subject.uid);
}

/// The first item of a result, kept alive together with the result's other objects; null without a result.
inline std::shared_ptr<KSWItem> firstItemOf(const Result& result) {
    return result == nullptr ? nullptr : result->firstItem();
}

/// Asks for the disposition in force. Fills the out-parameters on success only; either may be null.
template <class Method, class Owner>
bool askEffectiveDisposition(const Requester& requester, const Method& method, const Subject<Owner>& subject,
                             DispositionPlace dispositionOut, std::optional<Data>* constraintOut) {
    bool success = false;
    std::optional<Error> error;
    std::int64_t disposition = 0;
    std::optional<Data> constraint;
    sendAbout(
        requester, method, subject,
        [&](const Error& failure) {
            requester.logConnectionFailure(failure);
            error = failure;
        },
        [&](std::int64_t answer, std::optional<Data>&& bytes, std::int64_t code) {
            if (code == KSWErrorNone) {
                success = true;
                disposition = answer;
                constraint = std::move(bytes);
            } else {
                error = KSWErrorWithCode(code);
            }
        });
    constexpr Literal kName{"getEffectiveDisposition"};
    if (!success) {
        if (error) {
            host::mainLog.error("%s: error: %{public}@", kName, *error);
        }
        return false;
    }
    host::mainLog.notice("%s: disposition=%{public}@, have LWCR=%{bool}d", kName,
                         DispositionText{static_cast<KSWDisposition>(disposition)}, constraint.has_value());
    dispositionOut.store(disposition);
    if (constraintOut != nullptr) {
        *constraintOut = std::move(constraint);
    }
    return true;
}

/// Asks for an item's record. `result` receives what arrived; the name of the operation is for the log.
template <class Method, class Owner>
Result askForItem(const Requester& requester, const Method& method, const Subject<Owner>& subject,
                  Literal operation) {
    Result result;
    std::optional<Error> error;
    sendAbout(
        requester, method, subject,
        [&](const Error& failure) {
            requester.logConnectionFailure(failure);
            error = failure;
        },
        [&](Result&& answer) { result = std::move(answer); });
    if (result == nullptr) {
        host::mainLog.error("%s: error: %{public}@", operation, error);
    }
    return result;
}

inline void logItemConnectionFailure(const Error& failure) {
    host::mainLog.error("registerItem: connection error: %{public}@", failure);
}

/// Registers an item. The daemon's code; -1 when the connection failed, 0 when there is none.
template <class Method, class Owner>
std::int64_t registerItem(const Requester& requester, const Method& method, const Subject<Owner>& subject,
                          std::shared_ptr<KSWItem>* itemOut) {
    Result result;
    sendAbout(
        requester, method, subject,
        [&](const Error& failure) {
            logItemConnectionFailure(failure);
            result = KSWFetchResult::resultWithCode(KSWErrorGeneric, nullptr);
        },
        [&](Result&& answer) { result = std::move(answer); });
    const std::int64_t code = result == nullptr ? KSWErrorNone : result->code();
    const bool answered = code == KSWErrorNone || code == KSWErrorRecordExists || code == KSWErrorRecordUpdated;
    if (itemOut != nullptr && answered) {
        *itemOut = firstItemOf(result);
    }
    return code;
}

}  // namespace ksw::client
