// housekeeping.h: what the daemon does for requests that are not about a single item: settings and switches, device
// management, maintenance, and the legacy store of login items.
#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <type_traits>

#include "servers/kestrelwoodd/announce.h"
#include "servers/kestrelwoodd/authorisation.h"
#include "servers/kestrelwoodd/collector.h"
#include "servers/kestrelwoodd/operations.h"
#include "servers/kestrelwoodd/registry.h"
#include "servers/kestrelwoodd/report.h"

namespace ksw::daemon {

/// Whether the host lets a process, which is not the administrator's, manage the daemon's database. May block.
using Authority = std::function<bool(const AuditToken& process)>;

/// Serves requests. Any thread may call anything; what changes something waits for the disk.
class Housekeeping {
public:
    /// `registry` and `operations` are borrowed and outlive this. Of what goes without a request `announce` tells.
    Housekeeping(Registry& registry, Operations& operations, Announce announce, Authority authority)
        : registry_(registry),
          operations_(operations),
          announce_(std::move(announce)),
          authority_(std::move(authority)) {}

    /// An operation takes the arguments of its method as they come.
    template <class... P>
    using Operation = Report (Housekeeping::*)(const Caller& caller, const P&... arguments);

    /// Carries out the operation if the rule lets the caller, else answers -97.
    template <class... P>
    Report perform(Operation<P...> operation, Rule rule, const Caller& caller,
                   const std::type_identity_t<P>&... arguments) {
        if (!isAllowed(rule, caller, 0, uidSaid(caller, arguments...))) {
            return reportOf(KSWErrorPermissionDenied);
        }
        return (this->*operation)(caller, arguments...);
    }

    // Settings.

    /// The user's settings; new ones for a user without.
    Report fetchSettings(const Caller& caller, const Uid& uid);
    /// Keeps them, one generation further: 0, or -94 when they are not of the generation that is kept.
    Report saveSettings(const Caller& caller, const SettingsPointer& settings, const Uid& uid);

    // A subsystem's switch for a user, which stands in his settings. Subsystems of any name have one.

    /// Whether somebody has switched it.
    Report haveEnablement(const Caller& caller, const std::optional<std::string>& subsystem, const Uid& uid);
    /// Whether it is on; -95 when nobody has switched it.
    Report enablement(const Caller& caller, const std::optional<std::string>& subsystem, const Uid& uid);
    Report setEnablement(const Caller& caller, const bool& isEnabled, const std::optional<std::string>& subsystem,
                         const Uid& uid);
    /// Forgets that somebody has switched it: 0, also when nobody has.
    Report resetEnablement(const Caller& caller, const std::optional<std::string>& subsystem, const Uid& uid);

    // Whether users are told of each item, however often they were told before.

    Report alwaysPosts(const Caller& caller);
    /// The flag says whether it is kept.
    Report setAlwaysPosts(const Caller& caller, const bool& posts);

    // Device management; for the administrator.

    /// The payload that is kept under an identifier; none when there is none.
    Report payload(const Caller& caller, const std::optional<std::string>& identifier);
    /// Keeps a payload, or removes it when it is absent or empty; `isImmediate`: its rules are brought to bear on
    /// what is recorded already.
    Report setPayload(const Caller& caller, const std::optional<Dictionary>& payload,
                      const std::optional<std::string>& identifier, const bool& isImmediate);
    Report submitJob(const Caller& caller, const std::optional<std::string>& path);
    Report removeJobAtPath(const Caller& caller, const std::optional<std::string>& path);
    Report removeJobWithLabel(const Caller& caller, const std::optional<std::string>& label);
    /// A folder of jobs is about to be scanned: its records stay as they are until it has been.
    Report willScan(const Caller& caller, const std::optional<std::string>& path);
    /// It has been scanned: the jobs go whose files have gone, and all rules are brought to bear.
    Report didScan(const Caller& caller, const std::optional<std::string>& path);

    // Maintenance.

    /// Removes what has no file any more, after so many seconds.
    Report scheduleCollection(const Caller& caller, const double& delay);
    /// What is kept in memory for the user's requests goes.
    Report noteLogout(const Caller& caller, const Uid& uid);
    /// All records as text.
    Report dump(const Caller& caller, const std::optional<Data>& authorization);
    /// Removes all that is kept.
    Report erase(const Caller& caller, const std::optional<Data>& authorization);
    /// Nothing that nobody has asked for begins any more.
    void stop() { collector_.stop(); }

    // The legacy store of login items: the caller's user items, applications and login items, and the system's.

    Report fetchRoster(const Caller& caller, const std::int64_t& mask);
    /// Records the file's item: 0, or -96 for one that was there, which is allowed and enabled then. A global item
    /// is the system's; global and managed ones are the administrator's to add.
    Report addToRoster(const Caller& caller, const std::optional<URL>& url, const std::int64_t& type,
                       const bool& isGlobal, const bool& isManaged);
    /// -93, as of an update of any record.
    Report updateInRoster(const Caller& caller, const ItemPointer& item);
    Report removeFromRoster(const Caller& caller, const ItemPointer& item);

    /// A subsystem's name, and the identifier of a payload, in bytes.
    static constexpr std::size_t kSubsystemMax = 256;
    static constexpr std::size_t kPayloadIdentifierMax = 1'024;
    /// Folders that are scanned at a time.
    static constexpr std::size_t kScannedFoldersMax = 256;
    /// In seconds: a day.
    static constexpr double kCollectionDelayMax = 86'400;

private:
    /// The uid that a request names, which is its last argument; the caller's own when it names none.
    template <class... A>
    static Uid uidSaid(const Caller& caller, const A&... arguments) {
        if constexpr (sizeof...(A) > 0) {
            const auto& last = std::get<sizeof...(A) - 1>(std::tie(arguments...));
            if constexpr (std::is_same_v<std::remove_cvref_t<decltype(last)>, Uid>) {
                return last;
            }
        }
        return caller.uid;
    }

    bool mayMaintain(const Caller& caller, const std::optional<Data>& authorization) const;
    void collect();

    Registry& registry_;
    Operations& operations_;
    const Announce announce_;
    const Authority authority_;
    std::mutex mutex_;
    std::set<std::string> scanned_;  // guarded by mutex_
    Collector collector_{[this] { collect(); }};
};

}  // namespace ksw::daemon
