// operations.h: what the daemon does for each request, whoever carries the request to it.
#pragma once

#include <cstdint>
#include <type_traits>

#include "platform/host/clock.h"
#include "servers/kestrelwoodd/authorisation.h"
#include "servers/kestrelwoodd/known_jobs.h"
#include "servers/kestrelwoodd/launch_item.h"
#include "servers/kestrelwoodd/list_cache.h"
#include "servers/kestrelwoodd/registry.h"

namespace ksw::daemon {

/// How much of an item's family a reply takes along.
enum class Family : std::uint8_t {
    Whole,
    Deciding,  ///< What decides on the item. To answer each of a maker's thousand jobs with all the others takes a
               ///< million.
};

/// All that a reply can be made of; a method's reply has a part of it.
struct Answer {
    std::int64_t code = 0;  ///< A code of KSWErrors.h.
    ItemPointer item;       ///< Owns its whole family, which never changes.
    Family family = Family::Whole;
    KSWDisposition disposition = 0;     ///< 0 unless the code is 0.
    std::optional<Data> requirement{};  ///< The item's launch constraint.
    ListCache::Archive list{};          ///< The archive of a list of items; null for no list.
    std::optional<Dictionary> users{};  ///< The uid of each user identifier.
    /// What has changed, for those who are to be told before the answer is on its way.
    std::vector<protocol::UserDataChange> changes{};
    // Taken apart with the answer, when everybody has been told.
    std::vector<ItemPointer> given{};     ///< The items that the request brought.
    std::vector<ItemPointer> replaced{};  ///< The families in whose places others have come.
};

/// Serves requests. Any thread may call anything; what changes records waits for the disk.
class Operations {
public:
    /// `registry` and `clock` are borrowed and outlive this.
    explicit Operations(Registry& registry, const host::Clock& clock = host::systemClock())
        : registry_(registry), clock_(clock), lists_(registry.records()) {}

    // The forms of an operation: about a launch item, about a record, about nothing in particular.
    using Operation = Answer (Operations::*)(const Subject& subject, const Caller& caller);
    template <class Thing>
    using RecordOperation = Answer (Operations::*)(const RecordRequest<Thing>& request);
    using PlainOperation = Answer (Operations::*)(const Caller& caller);

    // Each carries out the operation if the rule lets the caller, else answers -97.
    Answer perform(Operation operation, Rule rule, const Subject& subject, const Caller& caller);
    template <class Thing>
    Answer perform(RecordOperation<Thing> operation, Rule rule,
                   const std::type_identity_t<RecordRequest<Thing>>& request) {
        const Answer refusal = refusalOf(rule, request.caller, claimedType(request.thing), request.uid);
        return refusal.code == 0 ? (this->*operation)(request) : refusal;
    }
    Answer perform(PlainOperation operation, Rule rule, const Caller& caller);

    // About launch items.

    /// Records the item, or brings its record up to date: 0, -96 or -93, with the item and what of its family
    /// decides on it.
    Answer enter(const Subject& subject, const Caller& caller);
    /// The same for an item that has been checked and identified.
    Answer enterItem(const LaunchItem& item, const std::string& identifier, const Caller& caller);
    /// The same for those who know success as 0 only.
    Answer enterQuietly(const Subject& subject, const Caller& caller);
    /// Records the item with these flags: 0, or -96 for one that was there, which is allowed and enabled then.
    Answer enterAllowed(const Subject& subject, const Caller& caller, KSWItemFlags flags);
    /// Removes the record.
    Answer remove(const Subject& subject, const Caller& caller);
    /// Takes the facts of a recorded item anew.
    ///
    /// Whoever asks about a recorded item, below, has its facts taken anew when the dates of its files show that
    /// they have changed. That is looked for once a second.
    Answer refresh(const Subject& subject, const Caller& caller);
    /// The record.
    Answer fetch(const Subject& subject, const Caller& caller);
    /// The disposition as it stands in the record, and as it would stand there when there is none.
    Answer storedDisposition(const Subject& subject, const Caller& caller);
    /// The disposition in force, and the launch constraint. That a record's file has come into the trash, or out
    /// of it, shows a second later at most.
    Answer effectiveDisposition(const Subject& subject, const Caller& caller);

    // About records. A search that finds nothing under the user goes on among the system's; a change does so for
    // the administrator, and is refused with -97 for others.

    /// The record: 0, or -95.
    Answer itemWithIdentifier(const RecordRequest<std::optional<std::string>>& request);
    Answer itemWithUUID(const RecordRequest<std::optional<UUID>>& request);
    /// The user's items whose type has a bit of the mask, then the system's.
    Answer itemsMatching(const RecordRequest<std::int64_t>& request);
    /// Makes a record of a client's item: 0, or -96 when there is one, which stays as it is.
    Answer add(const RecordRequest<ItemPointer>& request);
    /// Puts a client's copy, or a set of copies (an archive), in the place of the records: -93, all of them or
    /// none.
    Answer updateItem(const RecordRequest<ItemPointer>& request);
    Answer updateItems(const RecordRequest<std::optional<Data>>& request);
    /// Removes the record: 0, or -95.
    Answer removeWithIdentifier(const RecordRequest<std::optional<std::string>>& request);
    Answer removeWithUUID(const RecordRequest<std::optional<UUID>>& request);

    /// The uid of each user identifier that has records, as far as the caller may see.
    Answer listUsers(const Caller& caller);
    Dictionary users(const Caller& caller) const;

    /// Lets go of the lists that are kept for a user's next request.
    void forgetLists(Uid uid) { lists_.forget(uid); }

private:
    /// An item that a request means, and the name of its record.
    struct Named {
        LaunchItem item;
        std::string identifier;
    };

    Result<LaunchItem> itemOf(const Subject& subject, const Caller& caller) const;
    /// The item with its identifier; `codeWithout` as the error's code when it has none.
    Result<Named> namedItemOf(const Subject& subject, const Caller& caller, std::int64_t codeWithout) const;
    Answer entered(const Subject& subject, const Caller& caller);
    Found find(const LaunchItem& item, const std::string& identifier) const;
    /// The record, or what it would be; `told` receives what has changed. Error: a code of KSWErrors.h.
    Result<Found> recordedOrExpected(const Subject& subject, const Caller& caller, Answer& told);
    /// Takes a record's facts from the item; as they are without one.
    Answer refreshed(const Found& current, const std::optional<LaunchItem>& item, const Caller& caller);
    /// Has a record say what its files do when those have changed; `told` receives what has changed with that.
    void follow(Found& found, Answer& told);
    /// The disposition in force; absent when the rights to look for the item's file are not to be had.
    std::optional<KSWDisposition> judged(const Found& found, const Caller& caller) const;

    /// Of what type the thing of a request says that it is; 0 when it says nothing of it.
    template <class Thing>
    static KSWItemType claimedType(const Thing& /*thing*/) {
        return 0;
    }
    static KSWItemType claimedType(const ItemPointer& item) { return item == nullptr ? 0 : item->type(); }
    /// Code 0 when the rule lets the caller.
    static Answer refusalOf(Rule rule, const Caller& caller, KSWItemType type, Uid uid);

    template <class Key>
    Answer lookUp(const RecordRequest<std::optional<Key>>& request) const;
    template <class Key>
    Answer removeRecord(const RecordRequest<std::optional<Key>>& request);
    Answer update(const std::vector<ItemPointer>& items, Uid uid, const Caller& caller);

    Registry& registry_;
    const host::Clock& clock_;
    ListCache lists_;
    KnownJobs knownJobs_;
};

}  // namespace ksw::daemon
