// scripted_agent.h: an agent that answers what a test tells it to, over the real socket of the session, and what
// callbacks were told on which thread.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <kestrelwood/KSWAgentConnection.h>

#include "client/protocol/agent_service.h"
#include "client/protocol/services.h"
#include "platform/host/log_capture.h"
#include "platform/ipc/server.h"
#include "tests/support/scripted_server.h"

namespace ksw::test {

using LoginItemList = std::vector<std::shared_ptr<KSWLoginItem>>;
using BackgroundItemList = std::vector<std::shared_ptr<KSWBackgroundItem>>;
using MaybeError = std::optional<Error>;

/// A running agent. Handlers are given before `start`; a method without one is refused.
class ScriptedAgent {
public:
    template <class Method, class Handler>
    void on(const Method& method, Handler handler) {
        dispatcher_.on(method, std::move(handler));
    }
    /// Answers a method always alike.
    template <class... R, class... A>
    void answer(const ipc::Method<ipc::Reply<R...>(A...)>& method, const std::type_identity_t<R>&... reply) {
        dispatcher_.on(method, [reply...](const ipc::RequestContext&, ipc::Responder<R...> responder, const A&...) {
            responder.answer(reply...);
        });
    }

    void start() {
        ASSERT_TRUE(server_.listen(kAgentService, ipc::Domain::Session, std::move(dispatcher_)).ok());
        ASSERT_TRUE(server_.start().ok());
    }
    void stop() { server_.stop(); }
    ipc::Server& server() { return server_; }

private:
    ipc::Dispatcher dispatcher_;
    ipc::Server server_;
};

/// An agent that is a script, byte for byte.
inline std::unique_ptr<ScriptedServer> agentThat(ScriptedServer::Script script) {
    return std::make_unique<ScriptedServer>(kAgentService, std::move(script), ipc::Domain::Session);
}

/// What callbacks were told, and on which threads, in that order.
template <class T>
class Collected {
public:
    static constexpr std::chrono::seconds kTooLong{60};

    void add(T one) {
        const std::lock_guard lock(mutex_);
        all_.push_back(std::move(one));
        threads_.push_back(std::this_thread::get_id());
        changed_.notify_all();
    }
    /// Waits until there are so many; what there is then.
    std::vector<T> await(std::size_t count) {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, kTooLong, [&] { return all_.size() >= count; }))
            << all_.size() << " came, " << count << " expected";
        return all_;
    }
    std::vector<T> all() { return await(0); }
    std::vector<std::thread::id> threads() {
        const std::lock_guard lock(mutex_);
        return threads_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<T> all_;
    std::vector<std::thread::id> threads_;
};

/// A reply that is an error or none.
inline KSWAgentConnection::ErrorReply into(Collected<MaybeError>& errors) {
    return [&errors](MaybeError error) { errors.add(std::move(error)); };
}

/// A reply with items, which it keeps beside the error.
template <class List>
struct ItemsReply {
    std::optional<List> items;
    MaybeError error;
};
template <class List>
std::function<void(std::optional<List>, MaybeError)> into(Collected<ItemsReply<List>>& replies) {
    return [&replies](std::optional<List> items, MaybeError error) {
        replies.add({std::move(items), std::move(error)});
    };
}

/// The lines of the log at a level that begin like this, in full.
inline std::vector<std::string> linesLike(const host::LogCapture& log, host::LogLevel level,
                                          std::string_view beginning) {
    std::vector<std::string> lines = log.at(level);
    std::erase_if(lines, [beginning](const std::string& line) { return !line.starts_with(beginning); });
    return lines;
}

/// A door that a handler stays at until a test opens it.
class Gate {
public:
    /// Somebody is at the gate; waits until it is open.
    void pass() {
        std::unique_lock lock(mutex_);
        isReached_ = true;
        changed_.notify_all();
        EXPECT_TRUE(changed_.wait_for(lock, std::chrono::seconds(60), [this] { return isOpen_; }));
    }
    void awaitReached() {
        std::unique_lock lock(mutex_);
        EXPECT_TRUE(changed_.wait_for(lock, std::chrono::seconds(60), [this] { return isReached_; }));
    }
    void open() {
        const std::lock_guard lock(mutex_);
        isOpen_ = true;
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isReached_ = false;
    bool isOpen_ = false;
};

}  // namespace ksw::test
