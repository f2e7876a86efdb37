// operations.h: what the daemon does for each request about launch items, whoever carries the request to it.
#pragma once

#include <cstdint>

#include "platform/host/clock.h"
#include "servers/kestrelwoodd/authorisation.h"
#include "servers/kestrelwoodd/launch_item.h"
#include "servers/kestrelwoodd/registry.h"

namespace ksw::daemon {

/// All that a reply can be made of; a method's reply has a part of it.
struct Answer {
    std::int64_t code = 0;              ///< A code of KSWErrors.h.
    ItemPointer item;                   ///< Owns its whole family, which never changes.
    KSWDisposition disposition = 0;     ///< 0 unless the code is 0.
    std::optional<Data> requirement{};  ///< The item's launch constraint.
};

/// Serves requests about launch items. Any thread may call anything; what changes records waits for the disk.
class Operations {
public:
    /// `registry` and `clock` are borrowed and outlive this.
    explicit Operations(Registry& registry, const host::Clock& clock = host::systemClock())
        : registry_(registry), clock_(clock) {}

    using Operation = Answer (Operations::*)(const Subject& subject, const Caller& caller);

    /// Carries out the operation if the rule lets the caller, else answers -97.
    Answer perform(Operation operation, Rule rule, const Subject& subject, const Caller& caller);

    /// Records the item, or brings its record up to date: 0, -96 or -93, with the item.
    Answer enter(const Subject& subject, const Caller& caller);
    /// The same for those who know success as 0 only.
    Answer enterQuietly(const Subject& subject, const Caller& caller);
    /// Removes the record.
    Answer remove(const Subject& subject, const Caller& caller);
    /// Takes the facts of a recorded item anew.
    Answer refresh(const Subject& subject, const Caller& caller);
    /// The record.
    Answer fetch(const Subject& subject, const Caller& caller);
    /// The disposition as it stands in the record, and as it would stand there when there is none.
    Answer storedDisposition(const Subject& subject, const Caller& caller);
    /// The disposition in force, and the launch constraint. That a record's file has come into the trash, or out
    /// of it, shows a second later at most.
    Answer effectiveDisposition(const Subject& subject, const Caller& caller);

    /// The uid of each user identifier that has records, as far as the caller may see.
    Dictionary users(const Caller& caller) const;

private:
    /// An item that a request means, and the name of its record.
    struct Named {
        LaunchItem item;
        std::string identifier;
    };

    Result<LaunchItem> itemOf(const Subject& subject, const Caller& caller) const;
    /// The item with its identifier; `codeWithout` as the error's code when it has none.
    Result<Named> namedItemOf(const Subject& subject, const Caller& caller, std::int64_t codeWithout) const;
    Found find(const LaunchItem& item, const std::string& identifier) const;
    /// The record, or what it would be. Error: a code of KSWErrors.h.
    Result<Found> recordedOrExpected(const Subject& subject, const Caller& caller) const;
    /// The disposition in force; absent when the rights to look for the item's file are not to be had.
    std::optional<KSWDisposition> judged(const Found& found, const Caller& caller) const;

    Registry& registry_;
    const host::Clock& clock_;
};

}  // namespace ksw::daemon
