// KSWManager.h: the client of the management daemon.
// One object holds one service connection; every operation is one synchronous request over it.
#pragma once

#include <concepts>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <kestrelwood/KSWItem.h>
#include <kestrelwood/KSWList.h>
#include <kestrelwood/KSWUserSettings.h>
#include <kestrelwood/authorization.h>
#include <kestrelwood/export.h>
#include <kestrelwood/service_connection.h>
#include <kestrelwood/values.h>

/// The name of the distributed notification by which the management daemon announces that a user's items changed.
/// Its user information may hold "uid" (whose; every user's without it) and "type" (the mask of the types
/// concerned; every type without it, and with bit 30).
inline constexpr ksw::StringConstant KSWUserDataDidChangeNotification =
    "com.velmont.private.kestrelwood.user-data-changed";

/// Asks the management daemon, and waits for its answer.
///
/// Threads: any number of threads may use one manager at once; each request runs on its caller's thread and
/// blocks it until the reply or the connection's error is there. Requests are neither repeated nor timed out
/// here: the daemon bounds what it does. After a fork the child's requests use a connection of their own, also
/// those of its parent's managers and lists; but it is told of no change until it makes a manager of its own, and
/// then for the lists of that one.
///
/// Failures are values. When the connection fails the operation answers false, null, an empty collection or -1, as
/// each says (`removeItem` and `addUserItemForURL` succeed even then), and the failure is logged; but not by
/// `addItem`, `updateItem` and `updateItems`, which only hand the error out.
///
/// The feature "ControlAutomaticAppLaunch" of the domain "Kestrelwood" turns the manager on. With it off a manager
/// has no connection, and every operation answers false, null, 0 or an empty collection, and no error; what never
/// fails does not fail then either (`removeItem`, `addUserItemForURL`).
///
/// A manager observes the daemon's announcements from its construction on, and keeps the lists current that it has
/// handed out and that are still held. All managers of a process are told on one thread, one after the other: an
/// observer of a list that takes its time holds up the others.
///
/// Common parameters: `appURL` or `bundleURL` is the application that owns the item, or the audit token of a
/// process from whose bundle the daemon finds it; `type` is an item type of KSWTypes.h; `relativeURL` is the
/// item's place relative to the bundle; `configuration` is a launch configuration (keys in KSWTypes.h); `uid` is
/// the user concerned, and forms without it mean the calling process's real user.
class KSW_EXPORT KSWManager : public std::enable_shared_from_this<KSWManager> {
public:
    /// Where an error goes, or null; a URL that may be absent; and a launch configuration, by the keys in
    /// KSWTypes.h.
    using ErrorPlace = std::optional<ksw::Error>*;
    using OptionalURL = std::optional<ksw::URL>;
    using Configuration = std::optional<ksw::Dictionary>;

    /// The process-wide item manager, made on first use and never destroyed.
    static KSWManager& shared();
    /// The process-wide manager of the legacy login-item store, made on first use and never destroyed.
    static KSWManager& sharedRosterManager();
    /// A manager of mode 0 (items) or 1 (the legacy login-item store); any other mode has no connection.
    /// The service is dialled by the first request. Announcements are observed from now on, on another thread.
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

    // Records. `error` is where an error goes, or null; connection errors keep their own domain.

    /// Adds a record: true when it is there now, also when it was there before. `*error` receives the error, or
    /// nothing. The daemon takes neither generation nor the managed flag from the item.
    bool addItem(const std::shared_ptr<KSWItem>& item, ksw::Uid uid, ErrorPlace error = nullptr);
    /// Removes the record with the item's UUID. Always true: only `*error` tells a failure.
    bool removeItem(const std::shared_ptr<KSWItem>& item, ksw::Uid uid, ErrorPlace error = nullptr);
    /// Store changed items, all or none. True when they are stored; then the generation of each is one higher, as
    /// the daemon's is. False, and `*error` says why, when one is unknown, not the caller's or out of date (-94).
    bool updateItem(const std::shared_ptr<KSWItem>& item, ksw::Uid uid, ErrorPlace error = nullptr);
    bool updateItems(const ksw::ItemSet::Pointer& items, ksw::Uid uid, ErrorPlace error = nullptr);
    bool updateItems(const std::vector<std::shared_ptr<KSWItem>>& items, ksw::Uid uid, ErrorPlace error = nullptr) {
        return updateItems(ksw::ItemSet::of(items), uid, error);
    }

    /// The record, or null; `*error` receives an error only when the daemon could not be asked. The record keeps
    /// its containers alive.
    std::shared_ptr<KSWItem> getItemWithIdentifier(const std::optional<std::string>& identifier, ksw::Uid uid,
                                                   ErrorPlace error = nullptr);
    std::shared_ptr<KSWItem> fetchItemWithUUID(const std::optional<ksw::UUID>& uuid, ksw::Uid uid,
                                               ErrorPlace error = nullptr);

    /// The user's items whose type has a bit of the mask, in a list that stays current as long as it is held: a
    /// change that comes while it is fetched is in it, at the price of a second request. Null after a failure, and
    /// then `*error` says why.
    std::shared_ptr<KSWList> getItemsMatching(std::int64_t type, ksw::Uid uid, ErrorPlace error = nullptr);
    std::shared_ptr<KSWList> getItemsMatching(std::int64_t type);
    // A template, so that a uid of 0 is not taken for a null pointer.
    template <std::same_as<ErrorPlace> Place>
    std::shared_ptr<KSWList> getItemsMatching(std::int64_t type, Place error) {
        return getItemsMatchingForCaller(type, error);
    }

    /// Has a file opened at login: adds an enabled and allowed record for it, or enables the one that is there, and
    /// answers the record. A daemon that refuses is logged, and the item comes back unsaved. Null, and `*error`
    /// says why, only when no item can be made of the URL (-98) or the record that is there cannot be fetched.
    std::shared_ptr<KSWItem> addUserItemForURL(const ksw::URL& url, ksw::Uid uid, ErrorPlace error = nullptr);
    std::shared_ptr<KSWItem> addUserItemForURL(const ksw::URL& url);
    template <std::same_as<ErrorPlace> Place>
    std::shared_ptr<KSWItem> addUserItemForURL(const ksw::URL& url, Place error) {
        return addUserItemForCaller(url, error);
    }

    // What the daemon keeps about a user.

    /// A copy of the user's settings, or null; a refusal is logged.
    std::shared_ptr<KSWUserSettings> userSettingsForUID(ksw::Uid uid);
    /// Stores the settings for the user whom they name. True when they are stored; then their generation is one
    /// higher, as the daemon's is. False, which is logged, also when somebody has stored others since they were
    /// fetched; then fetch them again.
    bool saveUserSettings(const std::shared_ptr<KSWUserSettings>& settings);

    // The legacy login-item store, for the manager of mode 1. `error` is where an error goes, or null; connection
    // errors keep their own domain.

    /// The store's items whose type has a bit of the mask; absent after a failure. `*error` receives the error, or
    /// nothing.
    std::optional<std::vector<std::shared_ptr<KSWItem>>> fetchRosterItemsMatching(std::int64_t type,
                                                                                  ErrorPlace error = nullptr);
    /// Adds an item for the URL, for every user when `global`. The record, also when it was there before and is
    /// allowed now; null after a failure. `*error` receives the error, or nothing.
    std::shared_ptr<KSWItem> addRosterItemWithURL(const OptionalURL& url, std::int64_t type, bool global,
                                                  bool managed, ErrorPlace error = nullptr);
    /// Stores a changed item. True when it is stored; then its generation is one higher, as the daemon's is. False,
    /// and `*error` says why, after any other answer, code 0 included.
    bool updateRosterItem(const std::shared_ptr<KSWItem>& item, ErrorPlace error = nullptr);
    /// Removes an item. False, and `*error` says why, after a failure.
    bool removeRosterItem(const std::shared_ptr<KSWItem>& item, ErrorPlace error = nullptr);
    /// Is not supported: always false, and nobody is asked.
    bool importRosterLoginItemFromURL(const OptionalURL& url, ksw::Uid uid, bool deleteWhenDone);
    /// Has the calling user's agent take over the login items of the file in which they were kept before there was
    /// an agent, and then delete it when `deleteWhenDone`. True also when there is no such file, and then nobody is
    /// asked; false when the agent failed, which is logged, or the user has no home.
    bool importRosterLoginItemsAndDeleteWhenDone(bool deleteWhenDone);

    // Device management.

    /// The payload that is stored under the identifier; absent when there is none, and after a failure.
    std::optional<ksw::Dictionary> mdmPayloadForIdentifier(const std::optional<std::string>& identifier);
    /// Stores a payload in the place of the one under the identifier. Its rules are applied to the items that there
    /// are at once when `updateImmediately`. A failure is logged and not told.
    void setMDMPayload(const std::optional<ksw::Dictionary>& payload, const std::optional<std::string>& identifier,
                       bool updateImmediately);
    /// The same without `updateImmediately`.
    void setMDMPayload(const std::optional<ksw::Dictionary>& payload, const std::optional<std::string>& identifier);
    /// Does nothing: the daemon keeps managed items current itself.
    void refreshManagedItems();

    /// Have a job managed whose property list is at the path, or no longer, by its path or its label. False, and
    /// `*error` says why, after a failure.
    bool submitManagedJobAtPath(const std::optional<std::string>& path, ErrorPlace error = nullptr);
    bool removeManagedJobAtPath(const std::optional<std::string>& path, ErrorPlace error = nullptr);
    bool removeManagedJobWithLabel(const std::optional<std::string>& label, ErrorPlace error = nullptr);

    // What the service manager tells the daemon. Failures are logged only.

    /// The jobs in the folder are about to be looked through, or have been.
    void stewardWillScanPath(const std::optional<std::string>& path);
    void stewardDidScanPath(const std::optional<std::string>& path);
    /// The user has logged out.
    void noteLogoutForUID(ksw::Uid uid);

    // The daemon's database.

    /// Has records removed, 5 seconds from now, whose files are gone for good. Whether the daemon will.
    bool scheduleGarbageCollection();
    /// All records as text; absent after a failure. `*error` receives an error only when there is one.
    std::optional<std::string> dumpDatabaseWithAuthorization(const std::optional<ksw::Authorization>& authorization,
                                                             ErrorPlace error = nullptr);
    /// Removes all records for good. False, and `*error` says why, after a failure.
    bool eraseDatabaseWithAuthorization(const std::optional<ksw::Authorization>& authorization,
                                        ErrorPlace error = nullptr);

    // Notifications.

    /// Whether users are notified of every item, those too that they know. What the daemon answers; false after a
    /// failure.
    bool setAlwaysPostNotifications(bool always);
    /// Reads that into `*always`, which must not be null. False when the daemon cannot be asked; then `*always` is
    /// left as it was.
    bool getAlwaysPostNotifications(bool* always);
    /// Notes in the log what a user did with a notification, and nothing else.
    void handleNotificationResponseWithIdentifier(const std::optional<std::string>& identifier,
                                                  const std::optional<std::string>& action);

    /// Has the user's settings of login items opened, as KSWLaunchWarden does: returns at once, and completes once,
    /// on the agent connection's own thread, also when that failed.
    void openLoginItemsWithCompletion(std::function<void()> completion);

    /// What happens when a user's items changed: each list of the user that is still held is refreshed, unless the
    /// feature "AutoRefreshLists" is off, and its observers are told when the type concerns it. Runs on the thread
    /// on which the process is told of notifications.
    void handleUserDataDidChangeNotification(const ksw::Notification& notification);

private:
    friend class KSWList;
    struct State;

    explicit KSWManager(std::int64_t mode);

    /// The list, without keeping it current.
    std::shared_ptr<KSWList> _getItemsMatching(std::int64_t type, ksw::Uid uid, ErrorPlace error);
    std::shared_ptr<KSWList> getItemsMatchingForCaller(std::int64_t type, ErrorPlace error);
    std::shared_ptr<KSWItem> addUserItemForCaller(const ksw::URL& url, ErrorPlace error);

    /// Asks whether the item may launch; `error` receives an error for code 0 too, and stays empty only when there
    /// is no connection.
    void _canLaunchItemWithAppURL(const OptionalURL& appURL, std::int64_t type, const OptionalURL& relativeURL,
                                  const Configuration& configuration, ksw::Uid uid, bool* canLaunch,
                                  std::optional<ksw::Error>* error);

    std::unique_ptr<State> state_;
};
