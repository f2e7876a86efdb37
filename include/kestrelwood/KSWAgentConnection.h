// KSWAgentConnection.h: the client of the per-user agent.
#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <kestrelwood/KSWBackgroundItem.h>
#include <kestrelwood/KSWLoginItem.h>
#include <kestrelwood/export.h>
#include <kestrelwood/service_connection.h>
#include <kestrelwood/values.h>

/// Asks the agent of the caller's session, which serves the login items and background items that a user sees.
///
/// Each reply runs exactly once, whatever becomes of the agent; an empty one is not called. Its error is the
/// agent's, or the connection's when there is no answer, and then all else in it is absent. The connection dials on
/// its first request, and on later ones until it has reached an agent. After an interruption it does not dial
/// again: later requests fail, as long as the process lives.
///
/// Threads: any number of threads may use it at once. An operation that says it blocks runs its reply on the
/// calling thread, before it returns; it must not be called in a reply of one that does not. Those run on the
/// connection's own thread, one after the other, in the order in which the answers come. A reply must not throw.
class KSW_EXPORT KSWAgentConnection {
public:
    /// What the agent lists, absent when it fails, and what is called with an answer, once. An absent error is
    /// success.
    using LoginItems = std::optional<std::vector<std::shared_ptr<KSWLoginItem>>>;
    using BackgroundItems = std::optional<std::vector<std::shared_ptr<KSWBackgroundItem>>>;
    using LoginItemsReply = std::function<void(LoginItems items, std::optional<ksw::Error> error)>;
    using BackgroundItemsReply = std::function<void(BackgroundItems items, std::optional<ksw::Error> error)>;
    using ErrorReply = std::function<void(std::optional<ksw::Error> error)>;

    KSWAgentConnection(const KSWAgentConnection&) = delete;
    KSWAgentConnection& operator=(const KSWAgentConnection&) = delete;

    /// The process's only one, made on first use and never destroyed.
    static KSWAgentConnection& sharedInstance();
    /// "com.velmont.kestrelwoodagent".
    static ksw::StringConstant serviceName();

    /// The connection, made on first use and owned by this object. Never null.
    ksw::ServiceConnection* connection();

    /// The login items whose type has a bit of the mask. Blocks until the agent has answered.
    void getLoginItemsWithTypeMask(std::uint64_t typeMask, const LoginItemsReply& reply);
    /// Add or remove a login item. Blocks until the agent has answered.
    void addLoginItem(const std::shared_ptr<KSWLoginItem>& item, const ErrorReply& reply);
    void removeLoginItem(const std::shared_ptr<KSWLoginItem>& item, const ErrorReply& reply);

    /// The background items. Returns at once.
    void getBackgroundItemsWithReply(BackgroundItemsReply reply);
    /// What the user decided about the background item of a file. Returns at once.
    void setUserElection(std::int64_t election, const std::optional<ksw::URL>& url, ErrorReply reply);
    /// What the user decided about a background item, which the agent knows by its identifier. Returns at once. For
    /// null, and for what is no background item, nothing is sent: the reply has run with code -50 of
    /// `ksw::kStatusErrorDomain` when this returns.
    void setUserElection(std::int64_t election, const std::shared_ptr<const KSWBackgroundItem>& item,
                         ErrorReply reply);
    template <class Other>
    requires(!std::convertible_to<Other*, const KSWBackgroundItem*>)  //
        void setUserElection(std::int64_t /*election*/, const std::shared_ptr<Other>& item,
                             const ErrorReply& reply) {
        refuseElection(item == nullptr ? std::nullopt : std::optional<std::string>(item->description()), reply);
    }
    /// Has the user's settings program opened. Returns at once.
    void openLoginItemsWithReply(ErrorReply reply);

    /// Has the agent take over the legacy login items, and remove them from where they were when `deleteWhenDone`.
    /// True when the agent answered without an error; an error is logged. Blocks until the agent has answered.
    bool importRosterLoginItemsAndDeleteWhenDone(bool deleteWhenDone);

private:
    KSWAgentConnection() = default;
    ~KSWAgentConnection() = default;

    ksw::ipc::Connection& requests();
    /// Replies that `item`, in words, cannot be elected on.
    void refuseElection(const std::optional<std::string>& item, const ErrorReply& reply);

    std::atomic<ksw::ServiceConnection*> connection_{nullptr};  // owned; null before the first use
};
