// refresh_turns.h: the refreshes of one list, one after the other.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include <kestrelwood/values/error.h>

#include "platform/base/guarded.h"
#include "platform/host/lock_word.h"
#include "platform/ipc/process_epoch.h"

namespace ksw::client {

/// How a refresh ended: with a list, with an error, or with neither.
struct RefreshOutcome {
    bool hasList = false;
    std::optional<Error> error;
};

/// At most one refresh runs and at most one waits for it to end, so that an older answer never takes the place of a
/// newer one. Who comes while one waits shares it: it will ask later than they came. Any thread; `run` blocks.
class RefreshTurns {
public:
    template <class Ask>
    RefreshOutcome run(const Ask& ask) {
        const Turn turn = take();
        if (turn.before != nullptr) {
            turn.before->ended.wait(0);
        }
        if (turn.isOurs) {
            const Ending ending(*this, *turn.round);
            turn.round->outcome = ask();
        }
        return turn.round->outcome;
    }

private:
    struct Round {
        const std::uint64_t epoch = ipc::processEpoch();
        /// Written by the thread whose round it is, before `ended`.
        RefreshOutcome outcome;
        std::atomic<std::uint32_t> ended = 0;
    };
    using Pointer = std::shared_ptr<Round>;

    struct Rounds {
        Pointer running;
        Pointer waiting;
    };
    struct Turn {
        Pointer round;
        /// What to wait for.
        Pointer before;
        bool isOurs = true;
    };

    /// Ends a round, whatever has become of it.
    class Ending {
    public:
        Ending(RefreshTurns& turns, Round& round) : turns_(turns), round_(round) {}
        Ending(const Ending&) = delete;
        Ending& operator=(const Ending&) = delete;
        ~Ending() {
            {
                const auto rounds = turns_.rounds_.lock();
                rounds->running = std::move(rounds->waiting);
            }
            round_.ended = 1;
            round_.ended.notify_all();
        }

    private:
        RefreshTurns& turns_;
        Round& round_;
    };

    Turn take() {
        const auto rounds = rounds_.lock();
        if (rounds->running != nullptr && rounds->running->epoch != ipc::processEpoch()) {
            // The threads that had these turns are in the process that this one was forked from.
            *rounds = {};
        }
        if (rounds->running == nullptr) {
            rounds->running = std::make_shared<Round>();
            return {rounds->running, nullptr};
        }
        if (rounds->waiting == nullptr) {
            rounds->waiting = std::make_shared<Round>();
            return {rounds->waiting, rounds->running};
        }
        return {rounds->waiting, rounds->waiting, false};
    }

    Guarded<Rounds, host::LockWord> rounds_;
};

}  // namespace ksw::client
