// server_core.h: what the peers of a server share: bounds, counters, the events' descriptor and the table of peers.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/base/unique_fd.h"
#include "platform/ipc/quota.h"
#include "platform/ipc/server.h"
#include "platform/ipc/turns.h"

namespace ksw::ipc {

class Peer;

using Instant = std::chrono::steady_clock::time_point;

/// The steady clock to a few milliseconds, at the price of a load.
Instant coarseNow();

/// One service that is served. Constant once the server has started.
struct Service {
    std::string name;
    Dispatcher dispatcher;
};

/// Lives as long as any peer does. Safe from any thread.
class ServerCore {
public:
    ServerCore(const ServerLimits& bounds, std::size_t workers);

    /// Opens the descriptors. Error: the kernel denies one.
    Status open();

    const ServerLimits limits;
    Quotas quotas;
    Turns turns;
    std::atomic<std::uint64_t> served{0};
    std::atomic<std::uint64_t> refused{0};
    std::atomic<std::uint64_t> dropped{0};
    std::atomic<std::uint64_t> quotaHits{0};  // those that `quotas` does not count itself
    ServerCounters counters() const;

    /// How long a request may take; absent: for ever.
    std::optional<std::chrono::milliseconds> timeFor(Patience patience) const;

    // Peers, by the key under which their events come.

    std::uint64_t newKey() { return nextKey_.fetch_add(1, std::memory_order_relaxed); }
    /// Takes a peer in and watches its socket.
    Status add(const std::shared_ptr<Peer>& peer);
    /// The peer of an event; null when it has gone meanwhile.
    std::shared_ptr<Peer> find(std::uint64_t key);
    void remove(std::uint64_t key);
    std::vector<std::shared_ptr<Peer>> peers();

    /// Watches a socket, for writing too if asked. Whatever is the case already is reported anew.
    Status watch(int fd, std::uint64_t key, bool forWriting, bool isNew);

    /// Says that something is under way that ends by the clock, so that the supervisor looks in time.
    void startTicking() {
        if (!isTicking_.load()) {
            tickBy(std::chrono::steady_clock::now() + shortestTime_);
        }
    }
    /// The supervisor's: the timer has fired, and it will look now.
    void hasTicked();
    void tickBy(Instant instant);
    std::chrono::milliseconds shortestTime() const { return shortestTime_; }

    /// A connection has become free: the supervisor accepts again if it had to stop.
    void connectionEnded(Uid uid);
    /// The supervisor's: whether it waits for one.
    std::atomic<bool> isAcceptingPaused{false};
    void wakeSupervisor();
    /// Wakes one worker that rests.
    void wakeWorker();
    /// Ends the threads.
    void stop();
    bool isStopping() const { return isStopping_.load(); }

    int events() const { return events_.get(); }
    int timer() const { return timer_.get(); }
    int wake() const { return wake_.get(); }

    // Keys of events that are no peer's: the end of the workers, and work for one that rests.
    static constexpr std::uint64_t kStopKey = 0;
    static constexpr std::uint64_t kMoreKey = 1;

private:
    const std::chrono::milliseconds shortestTime_;
    // Constant once open.
    UniqueFd events_;
    UniqueFd stop_;
    UniqueFd more_;
    UniqueFd timer_;
    UniqueFd wake_;

    std::atomic<std::uint64_t> nextKey_{kMoreKey + 1};
    std::atomic<bool> isTicking_{false};
    std::atomic<bool> isStopping_{false};
    std::mutex timerMutex_;  // guards tickAt_
    std::optional<Instant> tickAt_;
    std::mutex peersMutex_;  // guards peers_
    std::unordered_map<std::uint64_t, std::shared_ptr<Peer>> peers_;
};

}  // namespace ksw::ipc
