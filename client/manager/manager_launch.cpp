// manager_launch.cpp: may it launch, and the launchable parts of an application.

#include <unistd.h>

#include <kestrelwood/KSWManager.h>

#include "client/manager/manager_state.h"
#include "client/manager/shared_requests.h"

using ksw::AuditToken;
using ksw::Error;
using ksw::Literal;
using ksw::Uid;
using ksw::client::RequestActivity;
using ksw::client::Requester;
using ksw::client::sendAbout;
using ksw::client::sendRequest;
using ksw::client::Subject;
using ksw::host::mainLog;
namespace methods = ksw::protocol::manager;

namespace {

using MaybeToken = std::optional<AuditToken>;
using MaybeURL = std::optional<ksw::URL>;

/// Sends a method that answers with a code alone; true for 0. `callback` names the reply's callback in the log.
template <class Method, class... Arguments>
bool succeeds(const Requester& requester, const Method& method, Literal callback, const Arguments&... arguments) {
    bool success = false;
    sendRequest(
        requester, method, [&](const Error& failure) { requester.logConnectionFailure(failure); },
        [&](std::int64_t code) {
            success = code == KSWErrorNone;
            if (!success) {
                mainLog.error("%s: error: %{public}@", callback, KSWErrorWithCode(code));
            }
        },
        arguments...);
    return success;
}

}  // namespace

bool KSWManager::registerLaunchItemWithBundleURL(const OptionalURL& bundleURL, std::int64_t type,
                                                 const OptionalURL& relativeURL, const Configuration& configuration,
                                                 Uid uid) {
    const RequestActivity activity("KSWManager.registerLaunchItemWithBundleURL");
    return succeeds(
        state_->requester, methods::kRegisterLaunchItem,
        Literal{"-[KSWManager registerLaunchItemWithBundleURL:type:relativeURL:configuration:uid:]_reply"},
        MaybeToken{}, bundleURL, type, relativeURL, configuration, uid);
}

bool KSWManager::registerLaunchItemWithAuditToken(const AuditToken& token, std::int64_t type,
                                                  const OptionalURL& relativeURL,
                                                  const Configuration& configuration, Uid uid) {
    const RequestActivity activity("KSWManager.registerLaunchItemWithAuditToken");
    return succeeds(
        state_->requester, methods::kRegisterLaunchItem,
        Literal{"-[KSWManager registerLaunchItemWithAuditToken:type:relativeURL:configuration:uid:]_reply"},
        MaybeToken(token), MaybeURL{}, type, relativeURL, configuration, uid);
}

bool KSWManager::registerLaunchItemWithAuditToken(const AuditToken& token, std::int64_t type,
                                                  const OptionalURL& relativeURL,
                                                  const Configuration& configuration) {
    return registerLaunchItemWithAuditToken(token, type, relativeURL, configuration, ::getuid());
}

bool KSWManager::unregisterLaunchItemWithBundleURL(const OptionalURL& bundleURL, std::int64_t type,
                                                   const OptionalURL& relativeURL, Uid uid) {
    const RequestActivity activity("KSWManager.unregisterLaunchItemWithBundleURL");
    return succeeds(state_->requester, methods::kUnregisterLaunchItem,
                    Literal{"-[KSWManager unregisterLaunchItemWithBundleURL:type:relativeURL:uid:]_reply"},
                    MaybeToken{}, bundleURL, type, relativeURL, uid);
}

bool KSWManager::unregisterLaunchItemWithAuditToken(const AuditToken& token, std::int64_t type,
                                                    const OptionalURL& relativeURL, Uid uid) {
    const RequestActivity activity("KSWManager.unregisterLaunchItemWithAuditToken");
    return succeeds(state_->requester, methods::kUnregisterLaunchItem,
                    Literal{"-[KSWManager unregisterLaunchItemWithAuditToken:type:relativeURL:uid:]_reply"},
                    MaybeToken(token), MaybeURL{}, type, relativeURL, uid);
}

bool KSWManager::unregisterLaunchItemWithAuditToken(const AuditToken& token, std::int64_t type,
                                                    const OptionalURL& relativeURL) {
    return unregisterLaunchItemWithAuditToken(token, type, relativeURL, ::getuid());
}

std::shared_ptr<KSWItem> KSWManager::invalidateLaunchItemWithBundleURL(const OptionalURL& bundleURL,
                                                                       std::int64_t type,
                                                                       const OptionalURL& itemURL,
                                                                       const Configuration& configuration,
                                                                       Uid uid) {
    const RequestActivity activity("KSWManager.invalidateLaunchItem");
    ksw::client::Result result;
    sendAbout(
        state_->requester, methods::kInvalidateLaunchItem,
        Subject<ksw::URL>{bundleURL, type, itemURL, configuration, uid},
        [&](const Error& failure) { state_->requester.logConnectionFailure(failure); },
        [&](ksw::client::Result&& answer) { result = std::move(answer); });
    if (result != nullptr && result->code() != KSWErrorNone) {
        mainLog.error("%s: error: %{public}@",
                      "-[KSWManager invalidateLaunchItemWithBundleURL:type:itemURL:configuration:uid:]",
                      KSWErrorString(result->code()));
    }
    return ksw::client::firstItemOf(result);
}

void KSWManager::_canLaunchItemWithAppURL(const OptionalURL& appURL, std::int64_t type,
                                          const OptionalURL& relativeURL, const Configuration& configuration,
                                          Uid uid, bool* canLaunch, std::optional<Error>* error) {
    const RequestActivity activity("KSWManager.canLaunchItemWithAppURL");
    bool answer = false;
    std::optional<Error> answerError;
    sendAbout(
        state_->requester, methods::kCanLaunchItem,
        Subject<ksw::URL>{appURL, type, relativeURL, configuration, uid},
        [&](const Error& failure) {
            state_->requester.logConnectionFailure(failure);
            answerError = failure;
        },
        [&](bool verdict, std::int64_t code) {
            answer = verdict;
            answerError = KSWErrorWithCode(code);
        });
    *canLaunch = answer;
    *error = answerError;
}

bool KSWManager::canLaunchItemWithAppURL(const OptionalURL& appURL, std::int64_t type,
                                         const OptionalURL& relativeURL, const Configuration& configuration) {
    bool canLaunch = false;
    std::optional<Error> error;
    _canLaunchItemWithAppURL(appURL, type, relativeURL, configuration, ::getuid(), &canLaunch, &error);
    if (error && error->code() != KSWErrorNone) {
        mainLog.error("%s: error: %{public}@",
                      "-[KSWManager canLaunchItemWithAppURL:type:relativeURL:configuration:]", *error);
    }
    return canLaunch;
}

bool KSWManager::getItemDisposition(ksw::DispositionPlace disposition, const OptionalURL& appURL, std::int64_t type,
                                    const OptionalURL& relativeURL, const Configuration& configuration, Uid uid) {
    const RequestActivity activity("KSWManager.getItemDisposition");
    bool success = false;
    std::optional<Error> error;
    sendAbout(
        state_->requester, methods::kItemDisposition,
        Subject<ksw::URL>{appURL, type, relativeURL, configuration, uid},
        [&](const Error& failure) {
            state_->requester.logConnectionFailure(failure);
            error = failure;
        },
        [&](std::int64_t answer, std::int64_t code) {
            if (code == KSWErrorNone) {
                disposition.store(answer);
                success = true;
            } else {
                error = KSWErrorWithCode(code);
            }
        });
    if (error) {
        mainLog.error("%s: error: %{public}@",
                      "-[KSWManager getItemDisposition:withAppURL:type:relativeURL:configuration:uid:]", *error);
    }
    return success;
}

bool KSWManager::getEffectiveDisposition(ksw::DispositionPlace disposition, std::optional<ksw::Data>* LWCR,
                                         const OptionalURL& appURL, std::int64_t type,
                                         const OptionalURL& relativeURL, const Configuration& configuration,
                                         Uid uid) {
    const RequestActivity activity("KSWManager.getEffectiveDisposition");
    return askEffectiveDisposition(state_->requester, methods::kEffectiveDispositionOfURL,
                                   Subject<ksw::URL>{appURL, type, relativeURL, configuration, uid}, disposition,
                                   LWCR);
}

bool KSWManager::getEffectiveDisposition(ksw::DispositionPlace disposition, std::optional<ksw::Data>* LWCR,
                                         const AuditToken& token, std::int64_t type, const OptionalURL& relativeURL,
                                         const Configuration& configuration, Uid uid) {
    const RequestActivity activity("KSWManager.getEffectiveDisposition");
    return askEffectiveDisposition(state_->requester, methods::kEffectiveDispositionOfProcess,
                                   Subject<AuditToken>{token, type, relativeURL, configuration, uid}, disposition,
                                   LWCR);
}
