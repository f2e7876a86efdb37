// notification_center_inside.cpp: the observations of a centre, and how its thread reaches hubs. What it tells whom
// stands in notification_telling.cpp.
#include "platform/ipc/notification_center_inside.h"

#include <algorithm>
#include <chrono>
#include <new>
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

/// How long the thread leaves the machine alone when it has no memory.
constexpr std::chrono::milliseconds kMemoryPause{1'000};

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
    const Lock lock(mutex_);
    entries_.push_back(entry);
    place_ = std::move(place);
    entry->mayHaveMissed = session_ == nullptr || session_->standing(entry->name) != HubSession::Standing::Observed;
    if (startThread()) {
        isWanted_ = session_ == nullptr;
        bell_->ring();
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
        thread_ = host::sys::startThread([self = shared_from_this()] { self->run(); });
    } catch (const std::system_error& failure) {
        host::mainLog.error("notifications: %{public}@",
                            host::sys::callError(failure.code().value(), "clone").localizedDescription());
        return false;
    }
    threadId_ = thread_.get_id();
    return true;
}

void NotificationCenter::Inside::release(Entry& entry) {
    Handler over;  // ends outside the lock
    Lock lock(mutex_);
    entry.isOver = true;
    std::erase_if(entries_, [&](const std::shared_ptr<Entry>& one) { return one.get() == &entry; });
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
        try {
            attend();
        } catch (const std::bad_alloc&) {
            lose();
            awaitBell(kMemoryPause);
        }
    }
}

bool NotificationCenter::Inside::isStopping() {
    const Lock lock(mutex_);
    return isStopping_;
}

/// One hub, from the attempt to reach it until another attempt is due.
void NotificationCenter::Inside::attend() {
    if (const std::shared_ptr<HubSession> session = newSession()) {
        if (tellNames(*session)) {
            serve(*session);
        }
        lose();
    }
    awaitHub();
}

/// Null when nothing is observed, or the thread is to end.
std::shared_ptr<HubSession> NotificationCenter::Inside::newSession() {
    const Lock lock(mutex_);
    isWanted_ = false;
    if (!isStopping_ && !entries_.empty()) {
        session_ = std::make_shared<HubSession>(domain_);
    }
    return session_;
}

/// Tells the hub every name that it was not told, dialling for the first. False: the session is of no use.
bool NotificationCenter::Inside::tellNames(HubSession& session) {
    while (const std::optional<std::string> name = firstUntold(session)) {
        if (Status status = session.observe(*name); !status) {
            complain(status.error());
            return false;
        }
    }
    return true;
}

std::optional<std::string> NotificationCenter::Inside::firstUntold(HubSession& session) {
    const Lock lock(mutex_);
    for (const std::shared_ptr<Entry>& entry : entries_) {
        if (session.standing(entry->name) == HubSession::Standing::Untold) {
            return entry->name;
        }
    }
    return std::nullopt;
}

/// Tells what comes, until the hub has gone or the thread is to end.
void NotificationCenter::Inside::serve(HubSession& session) {
    watch_.end();
    session.askNext();
    do {
        // What a name may have missed is told before anything that has come since.
        tellMissed(session);
        while (const std::optional<Result<Notification>> next = session.takeNext()) {
            if (!*next) {
                complain(next->error());
                return;
            }
            lastComplaint_.clear();
            deliver(**next);
            session.askNext();
        }
        awaitNews(session);
        tellHeld();
    } while (!isStopping() && tellNames(session));
}

/// The session, if there is one, is over: whatever is posted until the next may be missed.
void NotificationCenter::Inside::lose() noexcept {
    std::shared_ptr<HubSession> session;  // ends outside the lock
    const Lock lock(mutex_);
    session.swap(session_);
    for (const std::shared_ptr<Entry>& entry : entries_) {
        entry->mayHaveMissed = true;
    }
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

/// Waits for the bell or the hub, and reads what the hub has sent.
void NotificationCenter::Inside::awaitNews(HubSession& session) {
    pollfd waits[] = {{bell_->fd(), POLLIN, 0}, {session.fd(), POLLIN, 0}};
    (void)host::sys::poll(waits, std::nullopt);
    if (waits[0].revents != 0) {
        bell_->silence();
    }
    if (waits[1].revents != 0) {
        session.read();
    }
}

void NotificationCenter::Inside::awaitBell(host::sys::Timeout timeout) {
    pollfd wait{bell_->fd(), POLLIN, 0};
    (void)host::sys::poll({&wait, 1}, timeout);
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
