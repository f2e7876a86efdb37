// notification_center_inside.cpp: the observations of a centre, and how its thread reaches hubs. What it tells whom
// stands in notification_telling.cpp.
#include "platform/ipc/notification_center_inside.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "platform/host/host_root.h"
#include "platform/host/log.h"
#include "platform/host/sys.h"

namespace ksw::ipc {

namespace {

std::string placeOfHub(Domain domain) {
    return domain == Domain::System ? host::systemServicePath(kNotifyService)
                                    : host::sessionServicePath(kNotifyService);
}

/// Whether an error is none of the hub's ordinary comings and goings.
bool isRemarkable(const Error& error) {
    if (error.domain() != kConnectionErrorDomain) {
        return true;
    }
    switch (static_cast<ConnectionError>(error.code())) {
        case ConnectionError::Unreachable:
        case ConnectionError::Interrupted:
        case ConnectionError::Invalidated:
            return false;
        default:
            return true;
    }
}

}  // namespace

void NotificationCenter::Inside::observe(const std::shared_ptr<Entry>& entry) {
    std::string place = placeOfHub(domain_);
    std::shared_ptr<HubSession> session;
    {
        Lock lock(mutex_);
        entries_.push_back(entry);
        place_ = std::move(place);
        session = startThread() ? settledSession(lock) : nullptr;
    }
    while (session != nullptr && !session->observe(entry->name)) {
        // The hub has gone, and the thread may not have noticed yet.
        Lock lock(mutex_);
        isReached_ = isReached_ && session_ != session;
        session = settledSession(lock);
    }
}

bool NotificationCenter::Inside::startThread() {
    if (threadId_ != std::thread::id()) {
        return true;
    }
    Result<std::shared_ptr<Bell>> bell = Bell::create();
    if (!bell) {
        host::mainLog.error("notifications: %{public}@", bell.error().localizedDescription());
        return false;
    }
    bell_ = std::move(*bell);
    try {
        thread_ = std::thread([self = shared_from_this()] { self->run(); });
    } catch (const std::system_error& failure) {
        host::mainLog.error("notifications: %{public}@",
                            host::sys::callError(failure.code().value(), "clone").localizedDescription());
        return false;
    }
    threadId_ = thread_.get_id();
    return true;
}

/// The session with the hub, after another attempt when there is none. Null: there is no hub; or the thread runs a
/// handler, which may wait for the caller, and tells the hub later.
std::shared_ptr<HubSession> NotificationCenter::Inside::settledSession(Lock& lock) {
    if (!isReached_) {
        isWanted_ = true;
        bell_->ring();
        const std::uint64_t before = attempts_;
        changed_.wait(lock,
                      [&] { return attempts_ != before || running_ != nullptr || isStopping_ || isOwnThread(); });
    }
    return isReached_ ? session_ : nullptr;
}

void NotificationCenter::Inside::release(Entry& entry) {
    Handler over;  // ends outside the lock
    Lock lock(mutex_);
    entry.isOver = true;
    std::erase_if(entries_, [&](const std::shared_ptr<Entry>& one) { return one.get() == &entry; });
    mayHaveMissed_ = mayHaveMissed_ && !entries_.empty();
    if (running_ == &entry && isOwnThread()) {
        return;
    }
    changed_.wait(lock, [&] { return running_ != &entry; });
    over = std::move(entry.handler);
    lock.unlock();
}

void NotificationCenter::Inside::setSuspended(bool suspended) {
    const Lock lock(mutex_);
    isSuspended_ = suspended;
    if (bell_ != nullptr) {
        bell_->ring();
    }
}

void NotificationCenter::Inside::stop() {
    std::thread thread;
    std::shared_ptr<HubSession> session;
    {
        const Lock lock(mutex_);
        isStopping_ = true;
        thread = std::move(thread_);
        session = session_;
        if (bell_ != nullptr) {
            bell_->ring();
        }
    }
    if (session != nullptr) {
        session->end();
    }
    if (!thread.joinable()) {
        return;
    }
    if (thread.get_id() == std::this_thread::get_id()) {
        thread.detach();
    } else {
        thread.join();
    }
}

void NotificationCenter::Inside::run() {
    while (!isStopping()) {
        if (const std::shared_ptr<HubSession> session = reachHub()) {
            serve(*session);
            lose();
        }
        awaitHub();
    }
}

bool NotificationCenter::Inside::isStopping() {
    const Lock lock(mutex_);
    return isStopping_;
}

/// Dials, and tells the hub every name that is observed. Null when that fails, or nothing is observed.
std::shared_ptr<HubSession> NotificationCenter::Inside::reachHub() {
    std::shared_ptr<HubSession> session;
    {
        const Lock lock(mutex_);
        isWanted_ = false;
        if (!isStopping_ && !entries_.empty()) {
            session = std::make_shared<HubSession>(domain_, bell_);
            session_ = session;
        }
    }
    while (session != nullptr) {
        const std::optional<std::string> name = firstUntold(*session);
        if (!name) {
            return session;
        }
        if (Status status = session->observe(*name); !status) {
            complain(status.error());
            break;
        }
    }
    const Lock lock(mutex_);
    attemptOver(false);
    return nullptr;
}

/// A name that the hub does not know yet. Absent: it knows all, and is reached.
std::optional<std::string> NotificationCenter::Inside::firstUntold(HubSession& session) {
    const Lock lock(mutex_);
    for (const std::shared_ptr<Entry>& entry : entries_) {
        if (!session.hasTold(entry->name)) {
            return entry->name;
        }
    }
    attemptOver(true);
    return std::nullopt;
}

/// With the lock held.
void NotificationCenter::Inside::attemptOver(bool isReached) {
    isReached_ = isReached;
    if (!isReached) {
        session_.reset();
    }
    ++attempts_;
    changed_.notify_all();
}

/// Tells what comes, until the hub has gone or the thread is to end.
void NotificationCenter::Inside::serve(HubSession& session) {
    watch_.end();
    tellMissed();
    session.askNext();
    while (true) {
        awaitBell();
        if (isStopping()) {
            return;
        }
        tellHeld();
        const std::optional<Result<Notification>> next = session.takeNext();
        if (!next) {
            continue;
        }
        if (!*next) {
            complain(next->error());
            return;
        }
        lastComplaint_.clear();
        deliver(**next);
        session.askNext();
    }
}

void NotificationCenter::Inside::lose() {
    const Lock lock(mutex_);
    isReached_ = false;
    session_.reset();  // the thread has it still
    mayHaveMissed_ = !entries_.empty();
}

/// Waits until another attempt to reach a hub is worth while, or wanted at once.
void NotificationCenter::Inside::awaitHub() {
    const auto isDue = [this] { return isStopping_ || isWanted_; };
    std::string place;
    {
        const Lock lock(mutex_);
        if (isDue()) {
            return;
        }
        place = entries_.empty() ? std::string() : place_;
    }
    if (place.empty()) {
        watch_.end();
        awaitBell();
        return;
    }
    watch_.begin(place);
    while (!watch_.await(bell_->fd())) {
        bell_->silence();
        tellHeld();
        const Lock lock(mutex_);
        if (isDue()) {
            return;
        }
    }
}

void NotificationCenter::Inside::awaitBell() {
    pollfd wait{bell_->fd(), POLLIN, 0};
    (void)host::sys::poll({&wait, 1}, std::nullopt);
    bell_->silence();
}

void NotificationCenter::Inside::complain(const Error& error) {
    if (!isRemarkable(error) || error.localizedDescription() == lastComplaint_) {
        return;
    }
    lastComplaint_ = error.localizedDescription();
    host::mainLog.error("notifications: %{public}@", lastComplaint_);
}

}  // namespace ksw::ipc
