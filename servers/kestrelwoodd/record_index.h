// record_index.h: the records in memory, found by identifier or UUID.
// Holds what the store holds; who writes it has written the store first.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "servers/kestrelwoodd/family.h"
#include "servers/kestrelwoodd/judgement.h"
#include "servers/kestrelwoodd/shared_mutex.h"

namespace ksw::daemon {

/// What a search found.
struct Found {
    ItemPointer item;        ///< Owns its whole family, which never changes; null: there is no record.
    bool isDamaged = false;  ///< There is a record, and nobody can say what it holds.
    Uid uid = kNoUser;       ///< Whose record it is.
    std::shared_ptr<Judgement> judgement{};  ///< Of the record; null without one.
    std::string damagedIdentifier{};         ///< Of a damaged record.
};

/// How often the records that a user's list shows have changed: the user's own, and the system's.
struct ListVersion {
    std::uint64_t own = 0;
    std::uint64_t systems = 0;

    friend bool operator==(const ListVersion&, const ListVersion&) = default;
};

/// A user's items of some kinds, each owning its family, and which version of the records they are.
struct Listing {
    std::vector<ItemPointer> items;
    ListVersion version;
};

/// Finds records. Any thread may call anything; readers share one lock for the time of a search and hold none while
/// they use what they found. Published families are never changed afterwards.
class RecordIndex {
public:
    /// The family that takes the place of its former self, and the items that are gone.
    struct Publication {
        Uid uid = 0;
        ItemPointer root;  ///< Null: nothing is new.
        std::vector<std::pair<std::string, UUID>> dropped;
    };

    Found find(Uid uid, std::string_view identifier) const;
    Found find(Uid uid, const UUID& uuid) const;
    /// The user's record, else the system's of that identifier or UUID; a damaged one of the user's hides the
    /// system's.
    template <class Key>
    Found findOwnOrSystems(Uid uid, const Key& key) const {
        Found found = find(uid, key);
        return found.item != nullptr || found.isDamaged || uid == kEveryUser ? found : find(kEveryUser, key);
    }
    /// The record of this kind whose URL is the given one; looks through all of the user's.
    Found findByURL(Uid uid, KSWItemType baseKind, const URL& url) const;

    /// The user's items whose type has a bit of the mask, then the system's, each in the order in which they were
    /// first recorded; of `kEveryUser` the system's only. Damaged ones are left out.
    Listing list(Uid uid, KSWItemType mask) const;
    /// The user's own items, or the system's, in the order in which they were first recorded.
    std::vector<ItemPointer> own(Uid uid) const;
    /// The identifiers of the user's damaged records.
    std::vector<std::string> damaged(Uid uid) const;
    /// The version that `list` would answer now.
    ListVersion listVersion(Uid uid) const;

    /// Whether any user has a record with this UUID, damaged ones included.
    bool hasRecord(const UUID& uuid) const;
    /// Whether a record of the user, other than the one of this identifier, is damaged.
    bool hasDamagedBeside(Uid uid, const std::string& identifier) const;

    /// The users with records, damaged ones included, each with its user identifier, ascending by uid.
    std::vector<std::pair<Uid, std::string>> users() const;
    /// The user identifier under which the uid is known; absent when it is not.
    std::optional<std::string> userIdentifier(Uid uid) const;
    bool isTaken(std::string_view userIdentifier) const;

    void nameUser(Uid uid, std::string userIdentifier);
    /// Publishes all at once: a search sees none of them or all. The former families, to be let go of when there is
    /// time for it: whoever holds one item of a family holds it all.
    std::vector<ItemPointer> publish(const std::vector<Publication>& publications);
    /// Says in which order the user's records were first recorded; those published later come behind.
    void arrange(Uid uid, const std::vector<std::string_view>& identifiers);
    void setDamaged(Uid uid, std::string identifier, const UUID& uuid);
    void forgetDamaged(Uid uid, const std::string& identifier);
    /// Forgets all records and all users' names; every list is of a new version.
    void clear();

private:
    struct TextHash : std::hash<std::string_view> {
        using is_transparent = void;  // NOLINT(readability-identifier-naming): the standard's name
    };
    struct Published {
        ItemPointer item;
        std::shared_ptr<Judgement> judgement;
        std::uint64_t place = 0;  ///< In the order in which the user's were first recorded.
    };
    struct Records {
        std::string userIdentifier;
        std::unordered_map<std::string, Published, TextHash, std::equal_to<>> byIdentifier;
        std::unordered_map<UUID, ItemPointer> byUuid;
        std::unordered_map<std::string, UUID, TextHash, std::equal_to<>> damaged;
        std::uint64_t nextPlace = 0;
        std::uint64_t version = 0;
    };
    using Placed = std::vector<std::pair<std::uint64_t, ItemPointer>>;

    static std::vector<ItemPointer> arranged(Placed placed);

    // Under the lock.
    const Records* recordsOf(Uid uid) const;
    Placed matching(Uid uid, KSWItemType mask) const;
    ListVersion versionOf(Uid uid) const;

    mutable FairSharedMutex mutex_;
    std::unordered_map<Uid, Records> users_;  // guarded by mutex_
};

}  // namespace ksw::daemon
