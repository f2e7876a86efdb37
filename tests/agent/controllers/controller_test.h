// controller_test.h: what the tests of the controllers share. Each test needs a process of its own: there is one
// agent's connection and one main queue in a process.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <poll.h>

#include <kestrelwood/KSWBackgroundItemController.h>
#include <kestrelwood/KSWLoginItemController.h>
#include <kestrelwood/main_queue.h>

#include "tests/platform/ipc/notification_service.h"
#include "tests/support/host_root.h"
#include "tests/support/scripted_agent.h"

namespace ksw::test {

namespace methods = protocol::agent;

/// Waits until something waits in the main queue, and runs all that does. The test's own thread is the main one.
inline void runMainQueue() {
    pollfd waiting{MainQueue::descriptor(), POLLIN, 0};
    ASSERT_EQ(::poll(&waiting, 1, 60'000), 1) << "nothing came to the main queue";
    MainQueue::runWaiting();
}
inline bool isMainQueueEmpty() {
    pollfd waiting{MainQueue::descriptor(), POLLIN, 0};
    return ::poll(&waiting, 1, 0) == 0;
}

/// A delegate that remembers who told it, and on which thread.
class LoginItemsWitness : public KSWLoginItemControllerDelegate {
public:
    explicit LoginItemsWitness(bool isWilling = true) : isWilling_(isWilling) {}
    void loginItemControllerDidChangeItems(const std::shared_ptr<KSWLoginItemController>& controller) override {
        told_.add(controller->items().size());
        if (whenTold) {
            whenTold();
        }
    }
    bool wantsLoginItemControllerDidChangeItems() const override { return isWilling_; }
    /// How many items there were, each time.
    Collected<std::size_t>& told() { return told_; }

    std::function<void()> whenTold;

private:
    const bool isWilling_;
    Collected<std::size_t> told_;
};

class BackgroundItemsWitness : public KSWBackgroundItemControllerDelegate {
public:
    explicit BackgroundItemsWitness(bool isWilling = true) : isWilling_(isWilling) {}
    void backgroundItemControllerDidChangeItems(
        const std::shared_ptr<KSWBackgroundItemController>& controller) override {
        told_.add(controller->items().size());
    }
    bool wantsBackgroundItemControllerDidChangeItems() const override { return isWilling_; }
    Collected<std::size_t>& told() { return told_; }

private:
    const bool isWilling_;
    Collected<std::size_t> told_;
};

/// Runs inside the handler of a scripted agent, before it answers; a test can take its place at any time.
class Meanwhile {
public:
    void set(std::function<void()> meanwhile) {
        const std::lock_guard lock(mutex_);
        meanwhile_ = std::move(meanwhile);
    }
    void run() {
        std::unique_lock lock(mutex_);
        const std::function<void()> meanwhile = meanwhile_;
        lock.unlock();
        if (meanwhile) {
            meanwhile();
        }
    }

private:
    std::mutex mutex_;
    std::function<void()> meanwhile_;
};

/// What an agent answers, which a test can change at any time, and how often it was asked.
template <class List>
class Answer {
public:
    void set(std::optional<List> items, MaybeError error = {}) {
        const std::lock_guard lock(mutex_);
        items_ = std::move(items);
        error_ = std::move(error);
    }
    std::pair<std::optional<List>, MaybeError> take() {
        const std::lock_guard lock(mutex_);
        ++asked_;
        return {items_, error_};
    }
    std::size_t asked() {
        const std::lock_guard lock(mutex_);
        return asked_;
    }

private:
    std::mutex mutex_;
    std::optional<List> items_ = List{};
    MaybeError error_;
    std::size_t asked_ = 0;
};

inline Notification changeNotification() {
    return {std::string(kKSWBackgroundItemsChangeNotification), std::nullopt};
}

class ControllerTest : public ::testing::Test {
protected:
    /// The lines of controllers and of the agent's connection at debug level, without those of others.
    std::vector<std::string> steps() const {
        std::vector<std::string> lines = log_.at(host::LogLevel::Debug);
        std::erase_if(lines, [](const std::string& line) { return !line.starts_with("KSW") && line[0] != '#'; });
        return lines;
    }
    std::vector<std::string> errors() const { return log_.at(host::LogLevel::Error); }

    HostRoot root_;
    host::LogCapture log_;
    const Error error_{"com.example.agent", 7, "not today"};
};

}  // namespace ksw::test
