#include "platform/ipc/async_queue.h"

#include <new>
#include <system_error>
#include <utility>

#include "platform/host/sys_events.h"
#include "platform/host/sys_threads.h"
#include "platform/ipc/body.h"

namespace ksw::ipc {

bool AsyncQueue::start() {
    const std::lock_guard lock(mutex_);
    if (isStarted_) {
        return true;
    }
    Result<UniqueFd> bell = host::sys::eventDescriptor();
    if (!bell) {
        return false;
    }
    bell_ = std::move(*bell);
    try {
        thread_ = host::sys::startThread([self = shared_from_this()] { self->run(); });
    } catch (const std::system_error&) {
        return false;
    } catch (const std::bad_alloc&) {
        return false;
    }
    threadId_ = thread_.get_id();
    isStarted_ = true;
    return true;
}

void AsyncQueue::stop() {
    std::thread thread;
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = true;
        thread = std::move(thread_);
    }
    changed_.notify_all();
    if (!thread.joinable()) {
        return;
    }
    if (thread.get_id() == std::this_thread::get_id()) {
        thread.detach();
    } else {
        thread.join();
    }
}

void AsyncQueue::addLink(std::shared_ptr<Link> link) {
    const std::lock_guard lock(mutex_);
    std::erase_if(links_, [](const std::shared_ptr<Link>& old) { return old->hasEnded(); });
    links_.push_back(std::move(link));
}

void AsyncQueue::over(Call* call) noexcept {
    {
        const std::lock_guard lock(mutex_);
        over_.add(call);
        if (isReading_ && !hasRung_ && std::this_thread::get_id() != threadId_) {
            hasRung_ = host::sys::signalEvent(bell_.get()).ok();
        }
    }
    changed_.notify_one();
}

void AsyncQueue::needsReader() noexcept {
    {
        const std::lock_guard lock(mutex_);
        needsReader_ = true;
    }
    changed_.notify_one();
}

void AsyncQueue::run() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return over_.first() != nullptr || needsReader_ || isStopping_; });
        if (over_.first() != nullptr) {
            runFirst(lock);
        } else if (isStopping_) {
            return;
        } else {
            readLinks(lock);
        }
    }
}

void AsyncQueue::runWaiting() {
    std::unique_lock lock(mutex_);
    while (over_.first() != nullptr) {
        runFirst(lock);
    }
}

void AsyncQueue::runFirst(std::unique_lock<std::mutex>& lock) {
    BorrowedCall call(over_.takeFirst(), {pool_.get()});
    lock.unlock();
    call->handler(bodyOf(*call));
    call.reset();  // and its handler, which may own anything
    lock.lock();
}

void AsyncQueue::readLinks(std::unique_lock<std::mutex>& lock) {
    needsReader_ = false;
    for (std::size_t index = 0; index < links_.size() && over_.first() == nullptr; ++index) {
        const std::shared_ptr<Link> link = links_[index];
        isReading_ = true;
        lock.unlock();
        link->readForAsync(bell_.get());
        lock.lock();
        isReading_ = false;
    }
    if (std::exchange(hasRung_, false)) {
        (void)host::sys::drainEvent(bell_.get());
    }
}

}  // namespace ksw::ipc
