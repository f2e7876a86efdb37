// agent_connection.cpp: the requests to the per-user agent, and what each leaves in the log.

#include <kestrelwood/KSWAgentConnection.h>

#include <string_view>
#include <tuple>
#include <utility>

#include "client/protocol/agent_service.h"
#include "client/protocol/services.h"
#include "platform/base/text.h"
#include "platform/host/log.h"
#include "platform/ipc/service.h"

namespace methods = ksw::protocol::agent;

using ksw::Literal;
using ksw::host::mainLog;
using ErrorReply = KSWAgentConnection::ErrorReply;

namespace {

constexpr ksw::StringConstant kServiceName = "com.velmont.kestrelwoodagent";
static_assert(kServiceName == ksw::kAgentService);

constexpr std::int64_t kWrongParameter = -50;

constexpr Literal kGetLoginItems{"-[KSWAgentConnection getLoginItemsWithTypeMask:reply:]"};
constexpr Literal kAddLoginItem{"-[KSWAgentConnection addLoginItem:reply:]"};
constexpr Literal kRemoveLoginItem{"-[KSWAgentConnection removeLoginItem:reply:]"};
constexpr Literal kGetBackgroundItems{"-[KSWAgentConnection getBackgroundItemsWithReply:]"};
constexpr Literal kSetElectionForURL{"-[KSWAgentConnection setUserElection:forURL:reply:]"};
constexpr Literal kSetElectionForItem{"-[KSWAgentConnection setUserElection:forBackgroundItem:reply:]"};
constexpr Literal kOpenLoginItems{"-[KSWAgentConnection openLoginItemsWithReply:]"};
constexpr Literal kImport{"-[KSWAgentConnection importRosterLoginItemsAndDeleteWhenDone:]"};

constexpr std::string_view kLoginItemsFailed = "#LoginItems %s error: %{public}@";
constexpr std::string_view kLoginItemsReplied = "#LoginItems %s reply with %ld items, error: %{public}@";
constexpr std::string_view kLoginItemAsked = "#LoginItems %s item %@";
constexpr std::string_view kBackgroundAsked = "#BackgroundTasks %s";
constexpr std::string_view kBackgroundFailed = "#BackgroundTasks %s error: %{public}@";
constexpr std::string_view kBackgroundReplied = "#BackgroundTasks %s reply with %ld items, error: %{public}@";

/// Gives the caller a list of items, or the error for which there is none.
template <class Items>
void pass(ksw::Result<std::tuple<std::optional<Items>, std::optional<ksw::Error>>> answer, Literal operation,
          std::string_view failed, std::string_view replied,
          const std::function<void(std::optional<Items>, std::optional<ksw::Error>)>& reply) {
    std::optional<Items> items;
    std::optional<ksw::Error> error;
    if (answer) {
        std::tie(items, error) = std::move(*answer);
        mainLog.debug(replied, operation, items ? items->size() : 0, error);
    } else {
        error = answer.error();
        mainLog.debug(failed, operation, error);
    }
    if (reply) {
        reply(std::move(items), std::move(error));
    }
}

/// The same for a reply that is an error or none. An answer is not logged.
void pass(ksw::Result<std::tuple<std::optional<ksw::Error>>> answer, Literal operation, std::string_view failed,
          const ErrorReply& reply) {
    if (!answer) {
        mainLog.debug(failed, operation, answer.error());
    }
    if (reply) {
        reply(answer ? std::get<0>(std::move(*answer)) : std::optional(answer.error()));
    }
}

}  // namespace

KSWAgentConnection& KSWAgentConnection::sharedInstance() {
    static auto* const instance = new KSWAgentConnection;
    return *instance;
}

ksw::StringConstant KSWAgentConnection::serviceName() {
    return kServiceName;
}

ksw::ServiceConnection* KSWAgentConnection::connection() {
    ksw::ServiceConnection* present = connection_.load(std::memory_order_acquire);
    if (present != nullptr) {
        return present;
    }
    mainLog.info("Connecting to: %{public}@", serviceName());
    auto fresh = ksw::ipc::openService(serviceName(), ksw::ipc::ConnectionOptions{}, __ksw_serviceInterface());
    // Of threads that come here together one leaves its connection for all; nothing has been dialled yet.
    return connection_.compare_exchange_strong(present, fresh.get(), std::memory_order_acq_rel) ? fresh.release()
                                                                                                : present;
}

ksw::ipc::Connection& KSWAgentConnection::requests() {
    return *ksw::ipc::connectionOf(connection());
}

void KSWAgentConnection::getLoginItemsWithTypeMask(std::uint64_t typeMask, const LoginItemsReply& reply) {
    mainLog.debug("#LoginItems %s type mask %lX", kGetLoginItems, typeMask);
    pass(requests().call(methods::kGetLoginItems, typeMask), kGetLoginItems, kLoginItemsFailed, kLoginItemsReplied,
         reply);
}

void KSWAgentConnection::addLoginItem(const std::shared_ptr<KSWLoginItem>& item, const ErrorReply& reply) {
    mainLog.debug(kLoginItemAsked, kAddLoginItem, item);
    pass(requests().call(methods::kAddLoginItem, item), kAddLoginItem, kLoginItemsFailed, reply);
}

void KSWAgentConnection::removeLoginItem(const std::shared_ptr<KSWLoginItem>& item, const ErrorReply& reply) {
    mainLog.debug(kLoginItemAsked, kRemoveLoginItem, item);
    pass(requests().call(methods::kRemoveLoginItem, item), kRemoveLoginItem, kLoginItemsFailed, reply);
}

void KSWAgentConnection::getBackgroundItemsWithReply(BackgroundItemsReply reply) {
    mainLog.debug(kBackgroundAsked, kGetBackgroundItems);
    requests().callAsync(methods::kGetBackgroundItems, [reply = std::move(reply)](auto answer) {
        pass(std::move(answer), kGetBackgroundItems, kBackgroundFailed, kBackgroundReplied, reply);
    });
}

void KSWAgentConnection::setUserElection(std::int64_t election, const std::optional<ksw::URL>& url,
                                         ErrorReply reply) {
    mainLog.debug(kBackgroundAsked, kSetElectionForURL);
    requests().callAsync(
        methods::kSetElectionForURL,
        [reply = std::move(reply)](auto answer) {
            pass(std::move(answer), kSetElectionForURL, kBackgroundFailed, reply);
        },
        election, url);
}

void KSWAgentConnection::setUserElection(std::int64_t election,
                                         const std::shared_ptr<const KSWBackgroundItem>& item, ErrorReply reply) {
    if (item == nullptr) {
        refuseElection(std::nullopt, reply);
        return;
    }
    mainLog.debug(kBackgroundAsked, kSetElectionForItem);
    requests().callAsync(
        methods::kSetElectionForIdentifier,
        [reply = std::move(reply)](auto answer) {
            pass(std::move(answer), kSetElectionForItem, kBackgroundFailed, reply);
        },
        election, item->identifier());
}

void KSWAgentConnection::refuseElection(const std::optional<std::string>& item, const ErrorReply& reply) {
    mainLog.debug(kBackgroundAsked, kSetElectionForItem);
    mainLog.debug("#BackgroundTasks %s unable to set user election on %@", kSetElectionForItem, item);
    if (reply) {
        reply(ksw::Error(ksw::kStatusErrorDomain, kWrongParameter));
    }
}

void KSWAgentConnection::openLoginItemsWithReply(ErrorReply reply) {
    mainLog.debug(kBackgroundAsked, kOpenLoginItems);
    requests().callAsync(methods::kOpenLoginItems, [reply = std::move(reply)](auto answer) {
        if (answer) {
            mainLog.debug("#BackgroundTasks %s reply error: %{public}@", kOpenLoginItems, std::get<0>(*answer));
        }
        pass(std::move(answer), kOpenLoginItems, kBackgroundFailed, reply);
    });
}

bool KSWAgentConnection::importRosterLoginItemsAndDeleteWhenDone(bool deleteWhenDone) {
    mainLog.debug(kBackgroundAsked, kImport);
    const auto answer = requests().call(methods::kImportRosterLoginItems, deleteWhenDone);
    if (!answer) {
        mainLog.error("%s: error: %{public}@", kImport, answer.error());
        return false;
    }
    const std::optional<ksw::Error>& error = std::get<0>(*answer);
    if (error) {
        mainLog.error("%s: reply error: %{public}@", kImport, *error);
    }
    return !error;
}
