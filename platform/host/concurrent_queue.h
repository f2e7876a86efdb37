// concurrent_queue.h: work on shared state that others read: reads at the same time, changes alone and in order.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <string_view>

namespace ksw::host {

/// A queue without threads. A read runs on its caller; a barrier runs alone, after everything that was given before
/// it and before everything that is given later: on the thread that gives it, or, when others are in its way, on
/// the one of them that goes last. Any thread. Blocks must not throw. In a barrier, and in a read, the queue must
/// not be read.
class ConcurrentQueue {
public:
    /// `name` is for people who look at the process; it must live as long as the queue.
    explicit ConcurrentQueue(std::string_view name) : name_(name) {}
    ConcurrentQueue(const ConcurrentQueue&) = delete;
    ConcurrentQueue& operator=(const ConcurrentQueue&) = delete;

    std::string_view name() const { return name_; }

    /// Runs `read`, together with other reads, and gives what it gives. Blocks while barriers are before it.
    template <class Read>
    auto sync(Read&& read) {
        const Reading reading(*this);
        return read();
    }
    /// Has the block run alone.
    void barrierAsync(std::function<void()> block);

private:
    class Reading {
    public:
        explicit Reading(ConcurrentQueue& queue) : queue_(queue) { queue_.enter(); }
        ~Reading() { queue_.leave(); }
        Reading(const Reading&) = delete;
        Reading& operator=(const Reading&) = delete;

    private:
        ConcurrentQueue& queue_;
    };
    /// A barrier, or a read that waits for its turn.
    struct Entry {
        std::function<void()> barrier;
        bool* isIn = nullptr;
    };

    void enter();
    void leave();
    void advance(std::unique_lock<std::mutex>& lock);

    const std::string_view name_;
    std::mutex mutex_;  // guards all below; no block runs under it
    std::condition_variable admitted_;
    std::deque<Entry> waiting_;
    std::size_t readers_ = 0;
    bool hasBarrier_ = false;
};

}  // namespace ksw::host
