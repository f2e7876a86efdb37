// daemon_inside.h: the daemon's inside without its sockets: a store in a folder of the test's own, and callers.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWItem.h>

#include "servers/kestrelwoodd/housekeeping.h"
#include "servers/kestrelwoodd/operations.h"
#include "tests/support/temp_folder.h"

namespace ksw::daemon::test {

/// Uid 0, whoever runs the test.
inline constexpr Caller kRoot{0, 0};

/// An ordinary user: the one who runs the test, or some user when that is root.
Caller anOwner();
/// Another ordinary user.
Caller anOther();

/// A configuration with this label, and /opt/tool as the executable.
Dictionary jobNamed(std::string_view label);

class DaemonInside {
public:
    explicit DaemonInside(const host::Clock& clock = host::systemClock());

    /// Closes the store and reads it again, as a daemon that starts anew.
    void restart();
    /// The same when the store can take so many pages only.
    void restartWithPages(std::int64_t pagesMax);
    /// Runs statements on the store behind the daemon's back; restarts it afterwards.
    void damage(const std::string& statements);

    Operations& operations() { return *operations_; }
    Housekeeping& housekeeping() { return *housekeeping_; }
    /// What the host says of a process that wants to manage the database; no at first.
    void setAuthorised(bool isAuthorised) { isAuthorised_ = isAuthorised; }
    /// Who is told of what goes without a request, from the next start on.
    void setAnnounce(Announce announce) { announce_ = std::move(announce); }
    Registry& registry() { return *registry_; }
    const ksw::test::TempFolder& folder() const { return folder_; }

    /// Puts rows into the store behind the daemon's back, in one transaction; restarts it afterwards.
    void put(const std::vector<ItemRow>& rows);
    /// Allows an item as its user would, behind the daemon's back.
    void allow(Uid uid, std::string_view identifier);

    /// A job file in the test's folder that anybody may read; its URL.
    URL writeJob(std::string_view name, std::string_view label);

    // What the request says; anything left out is absent.
    Answer enterAgent(const Caller& caller, std::string_view label, Uid uid);
    Answer enterDaemon(const Caller& caller, std::string_view label);
    Answer ask(Operations::Operation operation, const Caller& caller, KSWItemType type,
               const std::optional<URL>& bundle, const std::optional<URL>& url,
               const std::optional<Dictionary>& configuration, Uid uid);
    /// About the legacy item of this kind with this label.
    Answer askOf(Operations::Operation operation, const Caller& caller, KSWItemType type, std::string_view label,
                 Uid uid);

    /// The record itself; null when there is none.
    ItemPointer record(Uid uid, std::string_view identifier) {
        return registry_->records().find(uid, identifier).item;
    }

    std::string path() const { return folder_.at("kestrelwood.db"); }

private:
    void close();

    const host::Clock& clock_;
    ksw::test::TempFolder folder_;
    std::unique_ptr<Registry> registry_;
    std::unique_ptr<Operations> operations_;
    std::atomic<bool> isAuthorised_ = false;
    Announce announce_ = [](const protocol::UserDataChange&, pid_t, ipc::Audience) {};
    std::unique_ptr<Housekeeping> housekeeping_;
};

inline constexpr KSWItemType kLegacyAgent = KSWItemTypeAgent | KSWItemTypeLegacyBit;
inline constexpr KSWItemType kLegacyDaemon = KSWItemTypeDaemon | KSWItemTypeLegacyBit;

/// The URL that a legacy job of this label is registered with here; no such file need exist.
URL jobURL(std::string_view label);

}  // namespace ksw::daemon::test
