// collector.h: when garbage is collected: some time after somebody has asked for it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace ksw::daemon {

/// A thread that does one thing at the times that were asked for. Any thread may call anything.
class Collector {
public:
    using Clock = std::chrono::steady_clock;

    /// `collect` runs on the collector's thread. The thread starts with the first request.
    explicit Collector(std::function<void()> collect) : collect_(std::move(collect)) {}
    /// Waits for a collection that runs; one that has not begun is given up.
    ~Collector();
    Collector(const Collector&) = delete;
    Collector& operator=(const Collector&) = delete;

    /// Collects after the delay. Of several requests that wait the first and the last have their collection; what
    /// those between them want is collected by the last. Throws as std::thread when no thread is to be had.
    void schedule(std::chrono::nanoseconds delay);
    /// Gives up what waits, and waits for what runs. Nothing can be scheduled any more.
    void stop();

private:
    void run();

    const std::function<void()> collect_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<Clock::time_point> next_;  // guarded by mutex_
    std::optional<Clock::time_point> last_;  // not before next_; guarded by mutex_
    bool stops_ = false;                     // guarded by mutex_
    std::thread thread_;                     // guarded by mutex_ until stops_ is set
};

}  // namespace ksw::daemon
