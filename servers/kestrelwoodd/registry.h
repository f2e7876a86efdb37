// registry.h: every record the daemon has: on disk, in memory, and the rules by which they change.
// A change is on disk before it is in memory, and in memory before its caller hears of it.
#pragma once

#include <map>
#include <mutex>

#include "client/protocol/user_data_change.h"
#include "platform/base/guarded.h"
#include "servers/kestrelwoodd/given_item.h"
#include "servers/kestrelwoodd/managed_rules.h"
#include "servers/kestrelwoodd/record_index.h"
#include "servers/kestrelwoodd/settings_book.h"
#include "servers/kestrelwoodd/store.h"

namespace ksw::daemon {

/// Whether every decision that was ever recorded is still known.
enum class History : std::uint8_t {
    Whole,
    Lost,  ///< Records have been lost: what has none may have been forbidden.
};

/// The identifier of the developer item under which everything hangs whose maker nobody knows.
inline constexpr std::string_view kUnknownDeveloper = "Unknown Developer";

/// The result of a change: a code of KSWErrors.h and the record as it is now, if there is one.
struct Outcome {
    std::int64_t code = 0;
    ItemPointer item{};  ///< Owns its whole family, which never changes.
    /// Whose records have changed, and of which kinds; empty when none have.
    std::vector<protocol::UserDataChange> changes{};
    /// What the change has replaced. Nobody who waits for the change need wait until that is taken apart.
    std::vector<ItemPointer> replaced{};
};

/// How far a change made for a user may go.
enum class Reach : std::uint8_t {
    Own,     ///< The user's records only; one of the system's is refused with -97.
    System,  ///< The system's as well, where the user has none.
};

/// The disposition that a new item starts with. A daemon waits for approval unless a daemon of the same container
/// is there and all of the container is allowed; the unknown developer is no container in this sense, or the
/// approval of one unknown maker's daemon would let in the next one's. Once records have been lost every item
/// waits, whatever its kind and its container, since it may be one that was forbidden.
KSWDisposition initialDisposition(KSWItemType type, const KSWItem* container, History history);

/// A developer item for what nobody is known to have made.
ItemPointer newUnknownDeveloper(const UUID& uuid);

/// The identifier of the developer item under which an item hangs.
std::string developerIdentifierOf(const KSWItem& item);
/// A new developer item for an item: of the developer whom it names, else of the unknown one.
ItemPointer newDeveloperOf(const KSWItem& item, const UUID& uuid);

/// All records. Any thread may call anything. Searches block nobody for longer than a look into a table; changes
/// come one after the other and wait for the disk.
class Registry {
public:
    /// Reads the whole store. A row that cannot be read is logged, and its item can be neither asked about nor
    /// registered, since it may be one that was forbidden; it can be unregistered.
    /// Error: the store cannot be read at all.
    static Result<std::unique_ptr<Registry>> load(Store store, History history = History::Whole);

    const RecordIndex& records() const { return index_; }
    History history() const { return history_; }

    // An item hangs under the developer whom it names; one that belongs to an application, under that, whose record
    // is made or brought up to date with these facts and hangs under the developer whom they name. `item` has no
    // relatives and is the registry's from now on, `application` is null for an item that belongs to none.

    /// Registers an item of these facts for a user: 0 and the new record, -96 and the one that was there with the
    /// same facts, -93 and the one that has them now. Its disposition stays as it was; but when its code is another
    /// developer's now, it starts as a new item of his, with what was disabled or not allowed left so. It gets its
    /// UUID here.
    Outcome enter(Uid uid, const ItemPointer& item, const ItemPointer& application = nullptr);
    /// The item as it would stand after it was entered for the first time; it is stored nowhere. Owns its parent.
    /// Error: KSWErrorGeneric, when its developer's or application's record is damaged.
    Result<ItemPointer> asIfEntered(Uid uid, const ItemPointer& item,
                                    const ItemPointer& application = nullptr) const;
    /// Brings the facts of a record up to date, as `enter` does, for one that is there: 0 and the record. -95
    /// when there is none.
    Outcome refresh(Uid uid, const ItemPointer& item, const ItemPointer& application = nullptr);
    /// Records a new item as it is, but for its generation: 0, -96 when the user has one of its identifier, -98
    /// when there is one of its UUID.
    Outcome insert(Uid uid, const ItemPointer& item, Reach reach, const ItemPointer& application = nullptr);
    /// Puts these in the place of the records that have their UUIDs, the user's or the system's, all of them or
    /// none: -93, and their generations are one higher. Refused: -95 for an unknown one, -98 for one that is not of
    /// the record's kind and identifier, and for one among several that names another developer than it hangs
    /// under, -94 for one of another generation. A single one that does so moves, as `enter` does it, and nothing
    /// comes back that it has disabled or not allowed. No two have the same UUID. With a known developer all of his
    /// applications are allowed or disallowed that are not among them.
    Outcome update(Uid uid, const std::vector<GivenUpdate>& updates, Reach reach);
    /// Allows and enables the user's record: -96 with it as it is then, -95 when there is none.
    Outcome allow(Uid uid, const std::string& identifier, Reach reach);
    /// Removes a record of the user: 0, -95 when there is none, -98 when others hang under it.
    Outcome remove(Uid uid, const std::string& identifier);
    /// The same for the user's or the system's record of this identifier or UUID.
    Outcome removeOwnOrSystems(Uid uid, const std::string& identifier, Reach reach);
    Outcome removeOwnOrSystems(Uid uid, const UUID& uuid, Reach reach);

    // Settings. What changes them answers a code of KSWErrors.h.

    const SettingsBook& settings() const { return settings_; }
    /// Keeps the user's settings, one generation further than they say: -94 when they are of another generation
    /// than those that are kept, -98 when they are larger than a field may be.
    std::int64_t saveSettings(Uid uid, const KSWUserSettings& settings);
    /// Switches a subsystem for the user, which is a new generation of his settings; absent: it has no status any
    /// more.
    std::int64_t setEnablement(Uid uid, const std::string& subsystem, std::optional<bool> isEnabled);
    std::int64_t setAlwaysPosts(bool posts);

    // What device management says. A rule stands above what an item's user chose: it decides some bits of the
    // disposition, and the item is flagged as managed. When no rule stands above it any more, it is again as its
    // user chose.

    Managed::Pointer managed() const;
    /// Keeps a payload under an identifier, in place of the former one; null: there is none any more. Its rules
    /// hold for whatever comes or changes from now on, and with `isImmediate` all records are brought in line in
    /// the same transaction. -98 for rules that are none, or too many or too large ones.
    Outcome setPayload(const std::string& identifier, std::shared_ptr<const Dictionary> payload, bool isImmediate);
    /// Brings all records in line with the rules.
    Outcome applyRules();
    /// Registers an item of these facts for the system, as the managed job of the file at `path`: 0 and the record;
    /// -96 when another file has a job of this label.
    Outcome submitJob(const std::string& path, const std::string& label, const ItemPointer& item,
                      const ItemPointer& application);
    /// Removes a job, and its record unless that was there before. -95 when there is none.
    Outcome removeJob(const std::string& path);

    // Upkeep.

    /// Removes those of these records that are still there as they are here and have nothing below them, and the
    /// developers and applications that nothing hangs under, nobody has registered and nobody has forbidden. A
    /// managed job's record stays.
    Outcome removeGone(const std::vector<std::pair<Uid, ItemPointer>>& gone);
    /// Removes all that is kept, of items, users, settings and managed things, in one transaction.
    Outcome erase();

    /// Moves the journal into the database file.
    Status checkpoint();

private:
    /// What a user's records take.
    struct Share {
        std::unordered_map<std::string, std::size_t> sizes;  ///< Bytes by identifier.
        std::size_t bytes = 0;
    };

    /// A record and what comes in its place.
    struct Replacement {
        Uid uid = 0;
        ItemPointer record;
        ItemPointer item;
        bool isOfOtherCode = false;  ///< Then it may belong under another developer.
    };
    /// A change on its way to the disk, then to memory, then to those who are told of it.
    struct Edit {
        Change change;
        std::vector<RecordIndex::Publication> publications;
        std::map<Uid, KSWItemType> kinds;
        /// What device management says from now on; null: what it said before.
        Managed::Pointer managed;

        /// Puts an item for which its user chose this, if a rule stands above it. False when no row can be made of
        /// it.
        [[nodiscard]] bool put(Uid uid, const KSWItem& item, const std::optional<OwnChoice>& choice);
        /// False when there is none.
        [[nodiscard]] bool put(Result<ItemRow> row, const std::optional<OwnChoice>& choice);
        void remove(Uid uid, const std::string& identifier, KSWItemType kindsGone);
    };

    Registry(Store store, History history) : history_(history), store_(std::move(store)) {}
    Status readStore();
    Status readKept();
    void place(const std::vector<StoredItem>& rows);
    void markDamaged(const ItemRow& row, std::string_view why);

    /// Once records have been lost only who reaches the system's may allow an item.
    void holdBack(KSWItem& item, const KSWItem* former, Reach reach) const;

    /// Where an item hangs, or is to hang.
    struct Place {
        ItemPointer developer;       ///< The record; null when it is to be made.
        ItemPointer application;     ///< The record; null when there is none, or it is to be made.
        ItemPointer newApplication;  ///< To be made; has its UUID and disposition.

        /// The container whose approval may stand for a new daemon of these facts; null for none.
        const KSWItem* voucherFor(const KSWItem& item) const;
    };
    /// How a record leaves its family.
    struct Departure {
        ItemPointer root;                  ///< Of the family that it leaves; null when nothing of that remains.
        std::string taken;                 ///< The identifier of what is taken out of that.
        const KSWItem* item;               ///< The same; null when its record is damaged.
        std::vector<ItemPointer> emptied;  ///< The containers that go with it, the inner first.
    };

    /// The record of the item's developer; null when there is none yet. Error: KSWErrorGeneric, when nobody can say
    /// what it holds.
    Result<ItemPointer> developerFor(Uid uid, const KSWItem& item) const;
    /// Where an item of these facts belongs. Error: as above, for the application too.
    Result<Place> placeFor(Uid uid, const KSWItem& item, const ItemPointer& application) const;
    ItemPointer newApplicationOf(Uid uid, const KSWItem& facts, const KSWItem* developer) const;
    /// Takes the approval from an application that comes under a developer who is forbidden: what it contains is
    /// judged by the application.
    void forbidWith(Uid uid, const KSWItem* developer, KSWItem& item) const;

    // One at a time.
    Outcome add(Edit& edit, Uid uid, const ItemPointer& item, const Place& place);
    /// What `insert` answers for an item that has a record. An application's stays from then on when what it
    /// contains has gone.
    Outcome nameExisting(Uid uid, const ItemPointer& record, const KSWItem& given);
    /// Brings the application's record up to date when there is one; adds to `told` what has changed.
    Status settle(Uid uid, const ItemPointer& application, Outcome& told);
    /// The outcome, with what was told before.
    static Outcome after(Outcome told, Outcome outcome);
    Outcome takeFactsAnew(Edit& edit, Uid uid, const ItemPointer& current, const ItemPointer& item,
                          const ItemPointer& application);
    /// Puts `updated` in the record's place, or in the one where it belongs now, with all below it.
    Outcome change(Edit& edit, Uid uid, const ItemPointer& current, const ItemPointer& updated,
                   const ItemPointer& application);
    /// Puts `updated` where it belongs now, with all below it. What it has disabled, or not allowed and the record
    /// has, stays so.
    Outcome move(Edit& edit, Uid uid, const ItemPointer& current, const ItemPointer& updated,
                 const ItemPointer& application);
    /// Hangs an item in its place, with the records that are to be made for that. `former` is how it leaves the
    /// place that it had. False when no row can be made.
    [[nodiscard]] bool hang(Edit& edit, Uid uid, const ItemPointer& item, const Place& place,
                            const Departure* former = nullptr) const;
    /// Null for a damaged record. Of the containers that are left without items those go that nothing keeps; all
    /// from `kept` outward stay.
    Departure departureOf(Uid uid, const std::string& identifier, const ItemPointer& record,
                          const KSWItem* kept = nullptr) const;
    /// Takes a record out of its family, and the containers that go with it out of the store. The record itself
    /// stays there.
    static void takeOut(Edit& edit, Uid uid, const Departure& departure);
    /// Whether a record hangs where these facts belong, or under what is neither developer nor application.
    static bool isInItsPlace(const KSWItem& record, const KSWItem& facts, const ItemPointer& application);
    static bool isUpToDate(const KSWItem& record, const KSWItem& facts, const ItemPointer& application);
    /// Whether an update leaves a record where it hangs, and with what was decided of it.
    static bool staysWhereItIs(const KSWItem& record, const KSWItem& updated);
    /// The application that a record belongs to after an update; null for none. One that vouches for a job does so
    /// for what its own developer has made only.
    static ItemPointer applicationOf(const KSWItem& record, const KSWItem& updated);
    /// With the applications of the developers who are allowed or disallowed: an application's items are judged by
    /// that, and not by its developer's record.
    std::vector<Replacement> withApplications(std::vector<Replacement> replacements) const;
    /// What is to be replaced by the updates. Error: a code of KSWErrors.h.
    Result<std::vector<Replacement>> replacementsFor(Uid uid, const std::vector<GivenUpdate>& updates,
                                                     Reach reach) const;
    /// The items of the replacements are as their users chose.
    Outcome replace(Edit& edit, const std::vector<Replacement>& replacements);
    template <class Key>
    Outcome removeFound(Uid uid, const Key& key, Reach reach);
    Outcome removeRecord(Edit& edit, Uid uid, const std::string& identifier, const Found& found);
    /// Whether nothing keeps the container once the one item `taken` has gone, for the sake of the record of this
    /// identifier.
    bool goesWith(Uid uid, const KSWItem& container, const std::string& taken, const std::string& identifier) const;
    /// Carries the change out on disk and then in memory, if its users' shares allow it; no item in the outcome.
    Outcome commit(const Edit& edit);
    // What stands above items. An item that is put was as its user chose before it was governed.

    /// What the user chose of a record above which a rule stands; absent for any other.
    std::optional<OwnChoice> governedChoice(Uid uid, const KSWItem& record) const;
    /// What the user chose of a record.
    OwnChoice choiceOf(Uid uid, const KSWItem& record) const;
    /// Makes a copy of a record as its user chose.
    void restoreChoice(Uid uid, KSWItem& copy) const;
    /// Makes a client's copy of a record as its user chooses now: what a rule decides stays as he chose it.
    void takeChoice(Uid uid, const KSWItem& record, KSWItem& updated) const;
    /// What device management says once the change is made.
    Managed::Pointer managedAfter(const Edit& edit) const;
    /// The records that the rules make other than they are.
    std::vector<Replacement> governedAnew(const Managed& managed) const;
    bool isAnyGoverned() const;
    Outcome applyRules(Edit& edit);
    Outcome changeJobs(Edit& edit, ManagedJobs jobs);
    Status readManaged();
    /// Marks the type of what a managed job's file says.
    void keepManagedType(Uid uid, KSWItem& item) const;
    /// What keeps a container that has been left without items, or holds damaged ones maybe.
    bool isKept(Uid uid, const KSWItem& container, const std::string& identifier) const;
    bool fits(const Change& change) const;
    void account(const Change& change);
    /// Gives the user a name in the store, when it has none yet.
    void nameUser(Edit& edit, Uid uid) const;
    std::string userIdentifierFor(Uid uid) const;
    /// One at a time.
    std::int64_t keepSettings(Uid uid, const KSWUserSettings& settings);

    const History history_;
    std::mutex writing_;                     // one change at a time
    Store store_;                            // guarded by writing_
    std::unordered_map<Uid, Share> shares_;  // guarded by writing_
    RecordIndex index_;
    SettingsBook settings_;
    /// What users chose of items above which a rule stands, by identifier. Changed with the records.
    using Choices = std::unordered_map<Uid, std::unordered_map<std::string, OwnChoice>>;
    mutable Guarded<Choices> choices_;
    mutable std::mutex managing_;
    Managed::Pointer managed_;  // never null once loaded; guarded by managing_
};

}  // namespace ksw::daemon
