// async_queue.h: the thread on which a connection's asynchronous handlers run.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/base/unique_fd.h"
#include "platform/ipc/call.h"
#include "platform/ipc/link.h"

namespace ksw::ipc {

/// Runs the handlers of calls that are over, one at a time and in that order, and reads for asynchronous calls when
/// no caller does. Any thread; the thread itself starts with `start`. Where it is never started somebody else
/// reads, and runs the handlers with `runWaiting`.
class AsyncQueue final : public AsyncSink, public std::enable_shared_from_this<AsyncQueue> {
public:
    /// Calls whose handlers have run go back to `pool`.
    explicit AsyncQueue(std::shared_ptr<CallPool> pool) : pool_(std::move(pool)) {}

    /// Starts the thread, once. False when the kernel denies one.
    bool start();
    /// Ends the thread after the handlers that wait. Waits for it, unless it is the calling thread.
    void stop();
    /// Without the thread: runs the handlers of the calls that are over, on the calling one. One at a time calls
    /// it.
    void runWaiting();
    /// One more link to read from when nobody else does, until it has ended.
    void addLink(std::shared_ptr<Link> link);

    void over(Call* call) noexcept override;
    void needsReader() noexcept override;

private:
    void run();
    void runFirst(std::unique_lock<std::mutex>& lock);
    void readLinks(std::unique_lock<std::mutex>& lock);

    const std::shared_ptr<CallPool> pool_;
    std::mutex mutex_;  // guards all below
    std::condition_variable changed_;
    CallRow over_;
    std::vector<std::shared_ptr<Link>> links_;  // oldest first; the last is in use, earlier ones are ending
    bool needsReader_ = false;
    bool isStopping_ = false;
    bool isStarted_ = false;
    bool isReading_ = false;  // the thread may be waiting for bytes
    bool hasRung_ = false;    // and has been called from there: a call is over whose answer it did not read
    UniqueFd bell_;           // constant once the thread has started
    std::thread thread_;
    std::thread::id threadId_;
};

}  // namespace ksw::ipc
