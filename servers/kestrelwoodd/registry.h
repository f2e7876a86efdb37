// registry.h: every record the daemon has: on disk, in memory, and the rules by which they change.
// A change is on disk before it is in memory, and in memory before its caller hears of it.
#pragma once

#include <mutex>

#include "servers/kestrelwoodd/record_index.h"
#include "servers/kestrelwoodd/store.h"

namespace ksw::daemon {

/// The identifier of the developer item under which everything hangs whose maker nobody knows.
inline constexpr std::string_view kUnknownDeveloper = "Unknown Developer";

/// The result of a change: a code of KSWErrors.h and the record as it is now, if there is one.
struct Outcome {
    std::int64_t code = 0;
    ItemPointer item;  ///< Owns its whole family, which never changes.
};

/// The disposition that a new item starts with. A daemon waits for approval unless a daemon of the same container
/// is there and all of the container is allowed; the unknown developer is no container in this sense, or the
/// approval of one unknown maker's daemon would let in the next one's.
KSWDisposition initialDisposition(KSWItemType type, const KSWItem* container);

/// A developer item for what nobody is known to have made.
ItemPointer newUnknownDeveloper(const UUID& uuid);

/// The item as it would stand after it was registered for the first time; it is stored nowhere. Owns its parent.
ItemPointer asIfEntered(const ItemPointer& item);

/// All records. Any thread may call anything. Searches block nobody for longer than a look into a table; changes
/// come one after the other and wait for the disk.
class Registry {
public:
    /// Reads the whole store. A row that cannot be read is logged, and its item can be neither asked about nor
    /// registered, since it may be one that was forbidden; it can be unregistered.
    /// Error: the store cannot be read at all.
    static Result<std::unique_ptr<Registry>> load(Store store);

    const RecordIndex& records() const { return index_; }

    /// Registers an item of these facts for a user: 0 and the new record, -96 and the one that was there with the
    /// same facts, -93 and the one that has them now. Its disposition stays as it was. `item` has no relatives and
    /// is the registry's from now on; it gets its UUID here.
    Outcome enter(Uid uid, const ItemPointer& item);
    /// Brings the facts of a record up to date, as `enter` does, for one that is there: 0 and the record. -95
    /// when there is none.
    Outcome refresh(Uid uid, const ItemPointer& item);
    /// Removes a record: 0, or -95 when there is none.
    std::int64_t remove(Uid uid, const std::string& identifier);

    /// Moves the journal into the database file.
    Status checkpoint();

private:
    /// What a user's records take.
    struct Share {
        std::unordered_map<std::string, std::size_t> sizes;  ///< Bytes by identifier.
        std::size_t bytes = 0;
    };

    explicit Registry(Store store) : store_(std::move(store)) {}
    Status readStore();
    void place(const std::vector<StoredItem>& rows);
    void markDamaged(const ItemRow& row, std::string_view why);
    std::int64_t add(Uid uid, const ItemPointer& item);
    std::int64_t update(Uid uid, const ItemPointer& current, const ItemPointer& item);
    /// Carries the change out on disk and then in memory, if the user's share allows it. The code.
    std::int64_t commit(const Change& change, const RecordIndex::Publication& publication);
    bool fits(const Change& change, Uid uid);
    void account(const Change& change, Uid uid);
    std::string userIdentifierFor(Uid uid) const;

    std::mutex writing_;                     // one change at a time
    Store store_;                            // guarded by writing_
    std::unordered_map<Uid, Share> shares_;  // guarded by writing_
    RecordIndex index_;
};

}  // namespace ksw::daemon
