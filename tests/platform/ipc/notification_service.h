// notification_service.h: a hub with its server, an observer's memory, and the hub's methods as a client calls
// them.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <latch>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/ipc/connection.h"
#include "platform/ipc/notification_center.h"
#include "platform/ipc/notification_hub.h"
#include "platform/ipc/server.h"
#include "tests/support/host_root.h"

namespace ksw::test {

/// A test that waits longer has failed.
inline constexpr std::chrono::seconds kTooLong{60};

/// A hub that is served until the object goes.
class ServedHub {
public:
    explicit ServedHub(ipc::Domain domain = ipc::Domain::System, ipc::Coalesce coalesce = nullptr)
        : hub_(domain, std::move(coalesce)) {
        const Status listening = server_.listen(ipc::kNotifyService, domain, hub_.service());
        EXPECT_TRUE(listening.ok()) << (listening ? "" : listening.error().description());
        EXPECT_TRUE(server_.start().ok());
    }
    ipc::NotificationHub& operator*() { return hub_; }
    ipc::NotificationHub* operator->() { return &hub_; }
    ipc::Server& server() { return server_; }

    /// Waits until so many connections observe.
    void awaitObservers(std::size_t count) {
        const auto end = std::chrono::steady_clock::now() + kTooLong;
        while (hub_.observers() != count && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        EXPECT_EQ(hub_.observers(), count);
    }

    /// Waits until so many requests have been refused.
    void awaitRefused(std::uint64_t count) {
        const auto end = std::chrono::steady_clock::now() + kTooLong;
        while (server_.counters().refused < count && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        EXPECT_EQ(server_.counters().refused, count);
    }

    /// Waits until so many requests have been answered with a reply.
    void awaitServed(std::uint64_t count) {
        const auto end = std::chrono::steady_clock::now() + kTooLong;
        while (server_.counters().served < count && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        EXPECT_GE(server_.counters().served, count);
    }

private:
    ipc::NotificationHub hub_;
    ipc::Server server_;
};

/// What handlers were told, in that order.
class Told {
public:
    /// A handler that remembers.
    ipc::NotificationCenter::Handler handler() {
        return [this](const Notification& notification) { add(notification); };
    }
    void add(const Notification& notification) {
        const std::lock_guard lock(mutex_);
        list_.push_back(notification);
        changed_.notify_all();
    }
    /// Waits until there are so many; what there is then.
    std::vector<Notification> await(std::size_t count) {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, kTooLong, [&] { return list_.size() >= count; }))
            << list_.size() << " told, " << count << " expected";
        return list_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Notification> list_;
};

/// Observes a name that the hub does not know yet, and waits until it does: the observation is told so. The handler
/// is not.
inline ipc::NotificationCenter::Observation observeKnown(ipc::NotificationCenter& center, std::string name,
                                                         ipc::NotificationCenter::Handler handler,
                                                         ipc::Coalesce coalesce = nullptr) {
    const auto known = std::make_shared<std::latch>(1);
    ipc::NotificationCenter::Observation observation = center.observe(
        std::move(name),
        [known, isKnown = false, handler = std::move(handler)](const Notification& notification) mutable {
            if (std::exchange(isKnown, true)) {
                handler(notification);
                return;
            }
            EXPECT_FALSE(notification.userInfo.has_value());
            known->count_down();
        },
        std::move(coalesce));
    known->wait();
    return observation;
}

inline Notification numbered(std::string name, std::int64_t number) {
    return {std::move(name), Dictionary{{"number", number}}};
}

inline std::int64_t numberOf(const Notification& notification) {
    const auto* number = notification.userInfo ? find<std::int64_t>(*notification.userInfo, "number") : nullptr;
    return number == nullptr ? -1 : *number;
}

/// A client of the hub that makes its requests one by one.
class HubClient {
public:
    explicit HubClient(ipc::Domain domain = ipc::Domain::System)
        : connection_(ipc::kNotifyService, {domain, std::nullopt, ipc::Redial::AfterInterruption},
                      ipc::makeInterface("NotifyInterface", ipc::kObserveNotification, ipc::kNextNotification,
                                         ipc::kPostNotification)) {}

    auto observe(const std::optional<std::string>& name) {
        return connection_.call(ipc::kObserveNotification, name);
    }
    Result<Notification> next() {
        auto reply = connection_.call(ipc::kNextNotification);
        if (!reply) {
            return reply.error();
        }
        auto& [name, userInfo] = *reply;
        return Notification{std::move(name).value_or(""), std::move(userInfo)};
    }
    /// The code, or the refusal's text.
    std::string post(const std::optional<std::string>& name, const std::optional<Dictionary>& userInfo = {}) {
        const auto reply = connection_.call(ipc::kPostNotification, name, userInfo);
        return reply ? std::to_string(std::get<0>(*reply)) : std::string(reply.error().localizedDescription());
    }
    ipc::Connection& connection() { return connection_; }

private:
    ipc::Connection connection_;
};

}  // namespace ksw::test
