// refresh_turns.h: the refreshes of one list, one after the other.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include <kestrelwood/values/error.h>

#include "platform/host/fork_guarded.h"
#include "platform/host/process_epoch.h"

namespace ksw::client {

/// How a refresh ended: with a list, with an error, or with neither.
struct RefreshOutcome {
    bool hasList = false;
    std::optional<Error> error;
};

/// At most one refresh runs and at most one waits for it to end, so that an older answer never takes the place of a
/// newer one. Who comes while one waits shares it: it will ask later than they came. Any thread; `run` blocks. What
/// an ask throws is thrown by its own `run`; who shared it gets an error.
class RefreshTurns {
public:
    template <class Ask>
    RefreshOutcome run(const Ask& ask) {
        const Turn turn = take();
        const Pointer& awaited = turn.isOurs ? turn.before : turn.round;
        if (awaited != nullptr) {
            awaited->ended.wait(0);
        }
        if (turn.isOurs) {
            const Ending ending(*this, *turn.round);
            turn.round->outcome = ask();
        }
        return turn.round->outcome;
    }

    /// How many threads wait for the one that asks to end.
    std::size_t waiting() {
        const auto rounds = rounds_.lock();
        return rounds->waiting == nullptr ? 0 : static_cast<std::size_t>(rounds->waiting.use_count()) - 1;
    }

private:
    struct Round {
        const std::uint64_t epoch = host::processEpoch();
        /// Written by the thread whose round it is, before `ended`. An ask throws when there is no memory, and
        /// then there may be none for an error either.
        RefreshOutcome outcome{false, Error(kPosixErrorDomain, ENOMEM, "refresh: out of memory")};
        std::atomic<std::uint32_t> ended = 0;
    };
    using Pointer = std::shared_ptr<Round>;

    struct Rounds {
        Pointer running;
        Pointer waiting;
    };
    struct Turn {
        Pointer round;
        /// The round to wait for before ours begins.
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
        if (rounds->running != nullptr && rounds->running->epoch != host::processEpoch()) {
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
        return {rounds->waiting, nullptr, false};
    }

    host::ForkGuarded<Rounds> rounds_;
};

}  // namespace ksw::client
