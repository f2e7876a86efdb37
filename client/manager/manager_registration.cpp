// manager_registration.cpp: registering items, withdrawing them, and fetching one by its launch facts.

#include <kestrelwood/KSWManager.h>

#include "client/manager/manager_state.h"
#include "client/manager/shared_requests.h"

using ksw::AuditToken;
using ksw::Uid;
using ksw::client::RequestActivity;
using ksw::client::Requester;
using ksw::client::Subject;
using ksw::host::mainLog;
namespace methods = ksw::protocol::manager;

namespace {

constexpr ksw::Literal kFetchItem{"-[KSWManager fetchItemWithAppURL:type:relativeURL:configuration:uid:]"};

/// One menu-bar item is written to the log with its family whenever somebody fetches it: where it comes from
/// was once hard to tell.
void logGateMenu(const KSWItem& item) {
    if (item.name() != "VelmontGateMenu") {
        return;
    }
    mainLog.notice("%s: item=%@", kFetchItem, item);
    mainLog.notice("%s: container=%@", kFetchItem, item.container());
    mainLog.notice("%s: item.fullPath=%@", kFetchItem, item.fullPath());
}

/// Withdraws an item. The daemon's code, -1 when the connection failed.
template <class Method, class Owner>
std::int64_t unregisterItem(const Requester& requester, const Method& method, const std::optional<Owner>& owner,
                            std::int64_t type, const std::optional<ksw::URL>& relativeURL, Uid uid) {
    std::int64_t result = KSWErrorNone;
    ksw::client::sendRequest(
        requester, method,
        [&](const ksw::Error& failure) {
            ksw::client::logItemConnectionFailure(failure);
            result = KSWErrorGeneric;
        },
        [&](std::int64_t code) { result = code; }, owner, type, relativeURL, uid);
    return result;
}

}  // namespace

std::shared_ptr<KSWItem> KSWManager::fetchItemWithAppURL(const OptionalURL& appURL, std::int64_t type,
                                                         const OptionalURL& relativeURL,
                                                         const Configuration& configuration, Uid uid) {
    const RequestActivity activity("KSWManager.fetchItemWithAppURL");
    const auto result = askForItem(state_->requester, methods::kItemOfURL,
                                   Subject<ksw::URL>{appURL, type, relativeURL, configuration, uid}, kFetchItem);
    std::shared_ptr<KSWItem> item = ksw::client::firstItemOf(result);
    if (item != nullptr) {
        logGateMenu(*item);
    }
    return item;
}

std::int64_t KSWManager::registerItem(std::shared_ptr<KSWItem>* item, const AuditToken& token, std::int64_t type,
                                      const OptionalURL& relativeURL, const Configuration& configuration, Uid uid) {
    const RequestActivity activity("KSWManager.registerItem");
    return ksw::client::registerItem(state_->requester, methods::kRegisterItemOfProcess,
                                     Subject<AuditToken>{token, type, relativeURL, configuration, uid}, item);
}

std::int64_t KSWManager::registerItem(std::shared_ptr<KSWItem>* item, const OptionalURL& bundleURL,
                                      std::int64_t type, const OptionalURL& relativeURL,
                                      const Configuration& configuration, Uid uid) {
    const RequestActivity activity("KSWManager.registerItem");
    return ksw::client::registerItem(state_->requester, methods::kRegisterItemOfURL,
                                     Subject<ksw::URL>{bundleURL, type, relativeURL, configuration, uid}, item);
}

std::int64_t KSWManager::unregisterItemWithAuditToken(const AuditToken& token, std::int64_t type,
                                                      const OptionalURL& relativeURL, Uid uid) {
    return unregisterItem(state_->requester, methods::kUnregisterItemOfProcess, std::optional(token), type,
                          relativeURL, uid);
}

std::int64_t KSWManager::unregisterItemWithBundleURL(const OptionalURL& bundleURL, std::int64_t type,
                                                     const OptionalURL& relativeURL, Uid uid) {
    return unregisterItem(state_->requester, methods::kUnregisterItemOfURL, bundleURL, type, relativeURL, uid);
}
