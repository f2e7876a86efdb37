// KSWManager.h: the client of the management daemon.
// One object holds one service connection; every operation is one synchronous request over it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <kestrelwood/KSWItem.h>
#include <kestrelwood/export.h>
#include <kestrelwood/service_connection.h>
#include <kestrelwood/values.h>

/// Asks the management daemon, and waits for its answer.
///
/// Threads: any number of threads may use one manager at once; each request runs on its caller's thread and
/// blocks it until the reply or the connection's error is there. Requests are neither repeated nor timed out
/// here: the daemon bounds what it does. After a fork the child's requests use a connection of their own.
///
/// Failures are values. A connection that fails is logged once per request and the operation answers false,
/// null, an empty collection or -1, as each says.
///
/// The feature "ControlAutomaticAppLaunch" of the domain "Kestrelwood" turns the manager on. With it off a manager
/// has no connection, and every operation answers false, null, 0 or an empty collection, and no error.
///
/// Common parameters: `appURL` or `bundleURL` is the application that owns the item, or the audit token of a
/// process from whose bundle the daemon finds it; `type` is an item type of KSWTypes.h; `relativeURL` is the
/// item's place relative to the bundle; `configuration` is a launch configuration (keys in KSWTypes.h); `uid` is
/// the user concerned, and forms without it mean the calling process's real user.
class KSW_EXPORT KSWManager {
public:
    using OptionalURL = std::optional<ksw::URL>;
    using Configuration = std::optional<ksw::Dictionary>;

    /// The process-wide item manager, made on first use and never destroyed.
    static KSWManager& shared();
    /// The process-wide manager of the legacy login-item store, made on first use and never destroyed.
    static KSWManager& sharedRosterManager();
    /// A manager of mode 0 (items) or 1 (the legacy login-item store); any other mode has no connection.
    /// Nothing is dialled before the first request.
    static std::shared_ptr<KSWManager> initWithMode(std::int64_t mode);

    ~KSWManager();
    KSWManager(const KSWManager&) = delete;
    KSWManager& operator=(const KSWManager&) = delete;

    /// The connection, owned by the manager; null when it has none.
    ksw::ServiceConnection* connection() const;

    /// The uid of each user identifier that the daemon knows; empty after a failure.
    ksw::Dictionary userIdentifiersAndUIDs();
    /// The uids for which the daemon holds data: 4294967294 for what belongs to no single user, then the users
    /// ascending; empty when it holds none or after a failure.
    std::vector<ksw::Uid> UIDs();

    /// Register a launchable part of an application. True when the daemon answered 0; other codes are logged.
    bool registerLaunchItemWithBundleURL(const OptionalURL& bundleURL, std::int64_t type,
                                         const OptionalURL& relativeURL, const Configuration& configuration,
                                         ksw::Uid uid);
    bool registerLaunchItemWithAuditToken(const ksw::AuditToken& token, std::int64_t type,
                                          const OptionalURL& relativeURL, const Configuration& configuration,
                                          ksw::Uid uid);
    bool registerLaunchItemWithAuditToken(const ksw::AuditToken& token, std::int64_t type,
                                          const OptionalURL& relativeURL, const Configuration& configuration);

    /// Withdraw a launchable part of an application. True when the daemon answered 0; other codes are logged.
    bool unregisterLaunchItemWithBundleURL(const OptionalURL& bundleURL, std::int64_t type,
                                           const OptionalURL& relativeURL, ksw::Uid uid);
    bool unregisterLaunchItemWithAuditToken(const ksw::AuditToken& token, std::int64_t type,
                                            const OptionalURL& relativeURL, ksw::Uid uid);
    bool unregisterLaunchItemWithAuditToken(const ksw::AuditToken& token, std::int64_t type,
                                            const OptionalURL& relativeURL);

    /// Has the daemon look at the item anew. The item, or null; a code other than 0 is logged.
    std::shared_ptr<KSWItem> invalidateLaunchItemWithBundleURL(const OptionalURL& bundleURL, std::int64_t type,
                                                               const OptionalURL& itemURL,
                                                               const Configuration& configuration, ksw::Uid uid);

    /// Whether the item may launch for the calling process's real user. False after any failure.
    bool canLaunchItemWithAppURL(const OptionalURL& appURL, std::int64_t type, const OptionalURL& relativeURL,
                                 const Configuration& configuration);

    /// The stored disposition. False after a failure, and then `*disposition` is left as it was; it may be null.
    bool getItemDisposition(ksw::DispositionPlace disposition, const OptionalURL& appURL, std::int64_t type,
                            const OptionalURL& relativeURL, const Configuration& configuration, ksw::Uid uid);

    /// The disposition in force and the item's launch-constraint bytes, which are absent when it has none.
    /// False after a failure, and then both are left as they were. Either pointer may be null.
    bool getEffectiveDisposition(ksw::DispositionPlace disposition, std::optional<ksw::Data>* LWCR,
                                 const OptionalURL& appURL, std::int64_t type, const OptionalURL& relativeURL,
                                 const Configuration& configuration, ksw::Uid uid);
    bool getEffectiveDisposition(ksw::DispositionPlace disposition, std::optional<ksw::Data>* LWCR,
                                 const ksw::AuditToken& token, std::int64_t type, const OptionalURL& relativeURL,
                                 const Configuration& configuration, ksw::Uid uid);

    /// The item's record, or null. Its containers live as long as the caller holds the item.
    std::shared_ptr<KSWItem> fetchItemWithAppURL(const OptionalURL& appURL, std::int64_t type,
                                                 const OptionalURL& relativeURL, const Configuration& configuration,
                                                 ksw::Uid uid);

    /// Register an item. The daemon's code (KSWErrors.h), -1 when it cannot be reached. With 0, -96 (it existed)
    /// and -93 (it was updated) `*item` receives the record, else it is left as it was; `item` may be null.
    std::int64_t registerItem(std::shared_ptr<KSWItem>* item, const ksw::AuditToken& token, std::int64_t type,
                              const OptionalURL& relativeURL, const Configuration& configuration, ksw::Uid uid);
    std::int64_t registerItem(std::shared_ptr<KSWItem>* item, const OptionalURL& bundleURL, std::int64_t type,
                              const OptionalURL& relativeURL, const Configuration& configuration, ksw::Uid uid);

    /// Withdraw an item. The daemon's code, -1 when it cannot be reached.
    std::int64_t unregisterItemWithAuditToken(const ksw::AuditToken& token, std::int64_t type,
                                              const OptionalURL& relativeURL, ksw::Uid uid);
    std::int64_t unregisterItemWithBundleURL(const OptionalURL& bundleURL, std::int64_t type,
                                             const OptionalURL& relativeURL, ksw::Uid uid);

private:
    struct State;

    explicit KSWManager(std::int64_t mode);

    /// Asks whether the item may launch; `error` receives an error for code 0 too, and stays empty only when there
    /// is no connection.
    void _canLaunchItemWithAppURL(const OptionalURL& appURL, std::int64_t type, const OptionalURL& relativeURL,
                                  const Configuration& configuration, ksw::Uid uid, bool* canLaunch,
                                  std::optional<ksw::Error>* error);

    std::unique_ptr<State> state_;
};
