#include "servers/kestrelwoodd/collector.h"

#include <algorithm>
#include <utility>

#include "platform/host/sys_threads.h"

namespace ksw::daemon {

Collector::~Collector() {
    stop();
}

void Collector::schedule(std::chrono::nanoseconds delay) {
    const Clock::time_point due = Clock::now() + delay;
    const std::lock_guard lock(mutex_);
    if (stops_) {
        return;
    }
    if (!thread_.joinable()) {
        thread_ = host::sys::startThread([this] { run(); });
    }
    next_ = next_ ? std::min(*next_, due) : due;
    last_ = last_ ? std::max(*last_, due) : due;
    changed_.notify_one();
}

void Collector::stop() {
    {
        const std::lock_guard lock(mutex_);
        stops_ = true;
        changed_.notify_one();
    }
    if (thread_.joinable()) {
        thread_.join();
    }
}

void Collector::run() {
    std::unique_lock lock(mutex_);
    while (!stops_) {
        if (!next_) {
            changed_.wait(lock);
            continue;
        }
        if (Clock::now() < *next_) {
            const Clock::time_point due = *next_;
            changed_.wait_until(lock, due);
            continue;
        }
        next_ = *last_ > *next_ ? last_ : std::nullopt;
        last_ = next_;
        lock.unlock();
        collect_();
        lock.lock();
    }
}

}  // namespace ksw::daemon
