// record_index.h: the records in memory, found by identifier or UUID.
// Holds what the store holds; who writes it has written the store first.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
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
    /// The record of this kind whose URL is the given one; looks through all of the user's.
    Found findByURL(Uid uid, KSWItemType baseKind, const URL& url) const;

    /// The users with records, damaged ones included, each with its user identifier, ascending by uid.
    std::vector<std::pair<Uid, std::string>> users() const;
    /// The user identifier under which the uid is known; absent when it is not.
    std::optional<std::string> userIdentifier(Uid uid) const;
    bool isTaken(std::string_view userIdentifier) const;

    void nameUser(Uid uid, std::string userIdentifier);
    void publish(const Publication& publication);
    void setDamaged(Uid uid, std::string identifier);
    void forgetDamaged(Uid uid, const std::string& identifier);

private:
    struct TextHash : std::hash<std::string_view> {
        using is_transparent = void;  // NOLINT(readability-identifier-naming): the standard's name
    };
    struct Published {
        ItemPointer item;
        std::shared_ptr<Judgement> judgement;
    };
    struct Records {
        std::string userIdentifier;
        std::unordered_map<std::string, Published, TextHash, std::equal_to<>> byIdentifier;
        std::unordered_map<UUID, ItemPointer> byUuid;
        std::unordered_set<std::string, TextHash, std::equal_to<>> damaged;
    };

    mutable FairSharedMutex mutex_;
    std::unordered_map<Uid, Records> users_;  // guarded by mutex_
};

}  // namespace ksw::daemon
