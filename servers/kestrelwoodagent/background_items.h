// background_items.h: the user's background items, which the management daemon keeps: the agent asks it for them,
// and hands it what the user decided.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <kestrelwood/KSWBackgroundItem.h>
#include <kestrelwood/KSWItem.h>
#include <kestrelwood/values.h>

#include "client/protocol/agent_service.h"
#include "platform/ipc/connection.h"

namespace ksw::agentserver {

/// Asks the management daemon. No operation waits for it: each reply runs once, on a thread of this object's own,
/// one after the other, or, where nothing has to be asked, before the operation returns. A daemon that was started
/// anew is found again by the next request. Any thread.
class BackgroundItems {
public:
    using ItemsReply = std::function<void(protocol::agent::BackgroundItems items, protocol::MaybeError error)>;
    /// Why the election does not hold, else nothing; and whether it changed anything.
    using ElectionReply = std::function<void(protocol::MaybeError error, bool hasChanged)>;

    /// The items of this user, and those of the system.
    explicit BackgroundItems(Uid user);

    /// All of them but the records that group a developer's items. An item without a bookmark in its record gets
    /// one of its file.
    void fetch(const ItemsReply& reply);

    /// Allows or disallows an item, or all items that have the URL's file. Error: status -50 for another election
    /// and for no item's name; -95 when there is no such item; the daemon's, -97 for an item of the system's.
    void elect(std::int64_t election, const std::optional<UUID>& identifier, const ElectionReply& reply);
    void elect(std::int64_t election, const std::optional<URL>& url, const ElectionReply& reply);

private:
    using Items = std::vector<KSWItem::Pointer>;
    using FoundReply = std::function<void(Result<Items> items)>;
    /// Finds the items that an election is about, anew each time.
    using Find = std::function<void(const FoundReply& reply)>;

    void list(const FoundReply& reply);
    void findByIdentifier(const UUID& identifier, const FoundReply& reply);
    void findByURL(const URL& url, const FoundReply& reply);
    void decide(const Find& find, bool isAllowed, int attempt, const ElectionReply& reply);
    void store(const Items& items, const std::function<void(Result<std::int64_t> code)>& reply);

    const Uid user_;
    /// Last: replies use the rest, and it waits for them.
    ipc::Connection daemon_;
};

}  // namespace ksw::agentserver
