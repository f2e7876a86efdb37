#include <kestrelwood/main_queue.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/base/unique_fd.h"
#include "platform/host/process_epoch.h"
#include "platform/host/sys_events.h"

namespace ksw {

namespace {

/// The queue in one process.
struct State {
    const std::uint64_t epoch = host::processEpoch();

    std::mutex mutex;  // guards all below; no block runs under it
    std::condition_variable changed;
    std::deque<MainQueue::Block> waiting;
    UniqueFd event;          // made when it is asked for; readable exactly while blocks wait
    bool isRunning = false;  // some thread is in a block
    bool isStopped = false;

    void push(MainQueue::Block block);
    /// Runs the oldest block, with the lock open.
    void runFirst(std::unique_lock<std::mutex>& lock);

private:
    MainQueue::Block pop();
};

constinit std::atomic<State*> currentState{nullptr};

State& current() {
    State* state = currentState.load(std::memory_order_acquire);
    // The state of a process that this one was forked from is left alone: its lock may be held for ever.
    if (state != nullptr && state->epoch == host::processEpoch()) {
        return *state;
    }
    auto fresh = std::make_unique<State>();
    return currentState.compare_exchange_strong(state, fresh.get()) ? *fresh.release() : *state;
}

void State::push(MainQueue::Block block) {
    {
        const std::lock_guard lock(mutex);
        waiting.push_back(std::move(block));
        if (waiting.size() == 1 && event) {
            (void)host::sys::signalEvent(event.get());
        }
    }
    changed.notify_all();
}

MainQueue::Block State::pop() {
    MainQueue::Block block = std::move(waiting.front());
    waiting.pop_front();
    if (waiting.empty() && event) {
        (void)host::sys::drainEvent(event.get());
    }
    return block;
}

void State::runFirst(std::unique_lock<std::mutex>& lock) {
    MainQueue::Block block = pop();
    isRunning = true;
    lock.unlock();
    if (block) {
        block();
        block = nullptr;  // and what it owns, which may use the queue
    }
    lock.lock();
    isRunning = false;
    changed.notify_all();
}

}  // namespace

void MainQueue::async(Block block) {
    current().push(std::move(block));
}

void MainQueue::run() {
    State& state = current();
    std::unique_lock lock(state.mutex);
    while (true) {
        state.changed.wait(lock,
                           [&state] { return state.isStopped || (!state.waiting.empty() && !state.isRunning); });
        if (std::exchange(state.isStopped, false)) {
            return;
        }
        state.runFirst(lock);
    }
}

void MainQueue::stop() {
    State& state = current();
    {
        const std::lock_guard lock(state.mutex);
        state.isStopped = true;
    }
    state.changed.notify_all();
}

int MainQueue::descriptor() {
    State& state = current();
    const std::lock_guard lock(state.mutex);
    if (!state.event) {
        Result<UniqueFd> event = host::sys::eventDescriptor();
        if (!event) {
            return -1;
        }
        state.event = std::move(*event);
        if (!state.waiting.empty()) {
            (void)host::sys::signalEvent(state.event.get());
        }
    }
    return state.event.get();
}

std::size_t MainQueue::runWaiting() {
    State& state = current();
    std::unique_lock lock(state.mutex);
    std::size_t ran = 0;
    for (std::size_t left = state.waiting.size(); left > 0 && !state.isRunning && !state.waiting.empty(); --left) {
        state.runFirst(lock);
        ++ran;
    }
    return ran;
}

}  // namespace ksw
