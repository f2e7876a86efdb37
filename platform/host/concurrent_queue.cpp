#include "platform/host/concurrent_queue.h"

#include <utility>

namespace ksw::host {

void ConcurrentQueue::barrierAsync(std::function<void()> block) {
    std::unique_lock lock(mutex_);
    waiting_.push_back({std::move(block), nullptr});
    advance(lock);
}

void ConcurrentQueue::enter() {
    std::unique_lock lock(mutex_);
    if (waiting_.empty() && !hasBarrier_) {
        ++readers_;
        return;
    }
    bool isIn = false;
    waiting_.push_back({nullptr, &isIn});
    admitted_.wait(lock, [&isIn] { return isIn; });
}

void ConcurrentQueue::leave() {
    std::unique_lock lock(mutex_);
    --readers_;
    advance(lock);
}

/// Lets in whoever is first, as long as one may be. A thread that is in a barrier looks again when it is through.
void ConcurrentQueue::advance(std::unique_lock<std::mutex>& lock) {
    while (!waiting_.empty() && !hasBarrier_) {
        Entry& first = waiting_.front();
        if (first.isIn != nullptr) {
            *first.isIn = true;
            ++readers_;
            waiting_.pop_front();
            admitted_.notify_all();
            continue;
        }
        if (readers_ > 0) {
            return;
        }
        std::function<void()> barrier = std::move(first.barrier);
        waiting_.pop_front();
        hasBarrier_ = true;
        lock.unlock();
        barrier();
        barrier = nullptr;  // and what it owns
        lock.lock();
        hasBarrier_ = false;
    }
}

}  // namespace ksw::host
