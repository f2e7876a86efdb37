#include "platform/ipc/server_core.h"

#include <algorithm>
#include <ctime>

#include "platform/host/sys.h"
#include "platform/ipc/peer.h"

namespace ksw::ipc {

namespace {

Quotas::Bounds quotaBounds(const ServerLimits& limits) {
    return {limits.connections, limits.connectionsPerUid, limits.connectionsReservedForRoot, limits.bytesPerUid,
            limits.bytesHeld};
}

Status take(Result<UniqueFd> opened, UniqueFd& descriptor) {
    if (!opened) {
        return opened.error();
    }
    descriptor = std::move(*opened);
    return {};
}

}  // namespace

Instant coarseNow() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return Instant(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

ServerCore::ServerCore(const ServerLimits& bounds, std::size_t workers)
    : limits(bounds),
      quotas(quotaBounds(bounds)),
      turns(workers),
      shortestTime_(std::min({bounds.stall, bounds.launchQuestion, bounds.request, bounds.longRequest})) {}

Status ServerCore::open() {
    for (Status status : {take(host::sys::epollCreate(), events_), take(host::sys::eventDescriptor(), stop_),
                          take(host::sys::eventDescriptor(), more_), take(host::sys::timerDescriptor(), timer_),
                          take(host::sys::eventDescriptor(), wake_)}) {
        if (!status) {
            return status;
        }
    }
    // Nobody drains it: each signal is an edge of its own, and wakes one worker.
    constexpr std::uint32_t kEdges = static_cast<std::uint32_t>(EPOLLIN) | EPOLLET;
    if (Status status = host::sys::epollControl(events(), EPOLL_CTL_ADD, more_.get(), kEdges, kMoreKey); !status) {
        return status;
    }
    return host::sys::epollControl(events(), EPOLL_CTL_ADD, stop_.get(), EPOLLIN, kStopKey);
}

ServerCounters ServerCore::counters() const {
    return {served.load(), refused.load(), dropped.load(), quotaHits.load() + quotas.hits(), quotas.connections()};
}

std::optional<std::chrono::milliseconds> ServerCore::timeFor(Patience patience) const {
    switch (patience) {
        case Patience::LaunchQuestion:
            return limits.launchQuestion;
        case Patience::Long:
            return limits.longRequest;
        case Patience::Unbounded:
            return std::nullopt;
        case Patience::Ordinary:
            break;
    }
    return limits.request;
}

Status ServerCore::add(const std::shared_ptr<Peer>& peer) {
    {
        const std::lock_guard lock(peersMutex_);
        peers_.emplace(peer->key(), peer);
    }
    Status status = watch(peer->fd(), peer->key(), false, true);
    if (!status) {
        remove(peer->key());
    }
    return status;
}

std::shared_ptr<Peer> ServerCore::find(std::uint64_t key) {
    const std::lock_guard lock(peersMutex_);
    const auto peer = peers_.find(key);
    return peer == peers_.end() ? nullptr : peer->second;
}

void ServerCore::remove(std::uint64_t key) {
    std::shared_ptr<Peer> last;  // ends outside the lock
    const std::lock_guard lock(peersMutex_);
    if (const auto peer = peers_.find(key); peer != peers_.end()) {
        last = std::move(peer->second);
        peers_.erase(peer);
    }
}

std::vector<std::shared_ptr<Peer>> ServerCore::peers() {
    std::vector<std::shared_ptr<Peer>> list;
    const std::lock_guard lock(peersMutex_);
    list.reserve(peers_.size());
    for (const auto& [key, peer] : peers_) {
        list.push_back(peer);
    }
    return list;
}

Status ServerCore::watch(int fd, std::uint64_t key, bool forWriting, bool isNew) {
    std::uint32_t wanted = static_cast<std::uint32_t>(EPOLLIN) | EPOLLRDHUP | EPOLLET;
    if (forWriting) {
        wanted |= EPOLLOUT;
    }
    return host::sys::epollControl(events(), isNew ? EPOLL_CTL_ADD : EPOLL_CTL_MOD, fd, wanted, key);
}

void ServerCore::hasTicked() {
    const std::lock_guard lock(timerMutex_);
    tickAt_.reset();
    isTicking_.store(false);
}

void ServerCore::tickBy(Instant instant) {
    const std::lock_guard lock(timerMutex_);
    isTicking_.store(true);
    if (tickAt_ && *tickAt_ <= instant) {
        return;
    }
    tickAt_ = instant;
    const auto delay = std::max<std::chrono::nanoseconds>(instant - std::chrono::steady_clock::now(),
                                                          std::chrono::milliseconds(1));
    // A timer that cannot be armed leaves what is under way to its own end.
    (void)host::sys::armTimer(timer(), delay);
}

void ServerCore::connectionEnded(Uid uid) {
    quotas.disconnect(uid);
    if (isAcceptingPaused.load()) {
        wakeSupervisor();
    }
}

void ServerCore::wakeSupervisor() {
    (void)host::sys::signalEvent(wake());
}

void ServerCore::wakeWorker() {
    (void)host::sys::signalEvent(more_.get());
}

void ServerCore::stop() {
    isStopping_.store(true);
    (void)host::sys::signalEvent(stop_.get());
    wakeSupervisor();
}

}  // namespace ksw::ipc
