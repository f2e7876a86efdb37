#include "platform/ipc/supervisor.h"

#include <algorithm>
#include <new>
#include <utility>

#include "platform/host/sys.h"
#include "platform/ipc/peer.h"

namespace ksw::ipc {

namespace {

// Keys of events; listeners have their index behind them.
constexpr std::uint64_t kWakeKey = 0;
constexpr std::uint64_t kTimerKey = 1;
constexpr std::uint64_t kFirstListenerKey = 2;

/// When accepting stopped for want of descriptors, how long until it is tried again.
constexpr auto kAcceptAgain = std::chrono::milliseconds(100);

}  // namespace

Supervisor::Supervisor(std::shared_ptr<ServerCore> core, std::vector<Post> posts, UniqueFd events)
    : core_(std::move(core)), posts_(std::move(posts)), events_(std::move(events)) {}

Result<std::unique_ptr<Supervisor>> Supervisor::create(std::shared_ptr<ServerCore> core, std::vector<Post> posts) {
    Result<UniqueFd> events = host::sys::epollCreate();
    if (!events) {
        return events.error();
    }
    std::unique_ptr<Supervisor> supervisor(new Supervisor(std::move(core), std::move(posts), std::move(*events)));
    if (Status status = supervisor->watchAll(); !status) {
        return status.error();
    }
    return supervisor;
}

Status Supervisor::watchAll() {
    Status status = host::sys::epollControl(events_.get(), EPOLL_CTL_ADD, core_->wake(), EPOLLIN, kWakeKey);
    if (status) {
        status = host::sys::epollControl(events_.get(), EPOLL_CTL_ADD, core_->timer(), EPOLLIN, kTimerKey);
    }
    for (std::size_t index = 0; index < posts_.size() && status; ++index) {
        status = host::sys::epollControl(events_.get(), EPOLL_CTL_ADD, posts_[index].listener->fd(), EPOLLIN,
                                         kFirstListenerKey + index);
    }
    return status;
}

void Supervisor::run() {
    while (!core_->isStopping()) {
        epoll_event event{};
        const Result<std::size_t> count = host::sys::epollWait(events_.get(), {&event, 1}, std::nullopt);
        if (!count || *count == 0) {
            continue;
        }
        if (event.data.u64 == kWakeKey) {
            (void)host::sys::drainEvent(core_->wake());
            resumeAccepting();
        } else if (event.data.u64 == kTimerKey) {
            expire();
        } else {
            acceptAll(posts_[event.data.u64 - kFirstListenerKey]);
        }
    }
}

void Supervisor::acceptAll(const Post& post) {
    while (!core_->isStopping()) {
        if (core_->quotas.isFull()) {
            core_->quotaHits.fetch_add(1);
            pauseAccepting();
            resumeAccepting();  // at once, if a connection ended before it was known that somebody waits for it
            return;
        }
        Result<std::optional<UniqueFd>> accepted = host::sys::accept(post.listener->fd(), true);
        if (!accepted) {
            // Out of descriptors or memory: until a connection ends, or a moment has passed.
            pauseAccepting();
            core_->tickBy(std::chrono::steady_clock::now() + kAcceptAgain);
            return;
        }
        if (!*accepted) {
            return;
        }
        if (!admit(std::move(**accepted), *post.service)) {
            core_->dropped.fetch_add(1);
        }
    }
}

bool Supervisor::admit(UniqueFd socket, const Service& service) try {
    Result<host::PeerIdentity> identity = host::PeerIdentity::ofSocket(socket.get());
    if (!identity || !core_->quotas.tryConnect(identity->uid())) {
        return false;
    }
    const Uid uid = identity->uid();
    std::shared_ptr<Peer> peer;
    try {
        peer = std::make_shared<Peer>(std::move(socket), std::move(*identity), core_, service);
        if (core_->add(peer)) {
            return true;
        }
    } catch (const std::bad_alloc&) {
        // As when the kernel denies it.
    }
    if (peer != nullptr) {
        peer->close();
    } else {
        core_->quotas.disconnect(uid);
    }
    return false;
} catch (const std::bad_alloc&) {
    return false;
}

void Supervisor::pauseAccepting() {
    isPaused_ = true;
    core_->isAcceptingPaused.store(true);
    for (std::size_t index = 0; index < posts_.size(); ++index) {
        (void)host::sys::epollControl(events_.get(), EPOLL_CTL_MOD, posts_[index].listener->fd(), 0,
                                      kFirstListenerKey + index);
    }
}

void Supervisor::resumeAccepting() {
    if (!isPaused_ || core_->quotas.isFull()) {
        return;
    }
    isPaused_ = false;
    core_->isAcceptingPaused.store(false);
    for (std::size_t index = 0; index < posts_.size(); ++index) {
        (void)host::sys::epollControl(events_.get(), EPOLL_CTL_MOD, posts_[index].listener->fd(), EPOLLIN,
                                      kFirstListenerKey + index);
    }
}

void Supervisor::expire() {
    // Firing leaves the timer readable until it is armed anew, so it is disarmed first.
    (void)host::sys::armTimer(core_->timer(), std::nullopt);
    core_->hasTicked();
    resumeAccepting();
    const Instant now = std::chrono::steady_clock::now();
    std::optional<Instant> next;
    for (const std::shared_ptr<Peer>& peer : core_->peers()) {
        if (const std::optional<Instant> due = peer->expire(now)) {
            next = next ? std::min(*next, *due) : *due;
        }
    }
    if (next) {
        core_->tickBy(std::min(*next, now + core_->shortestTime()));
    }
}

}  // namespace ksw::ipc
