// agent_host.h: a host root, a home and a session of a test's own, for kestrelwoodd and kestrelwoodagent, and a
// caller of both.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "client/protocol/agent_service.h"
#include "client/protocol/manager_service.h"
#include "client/protocol/services.h"
#include "platform/ipc/connection.h"
#include "platform/ipc/notification_center.h"
#include "tests/servers/kestrelwoodd/daemon_process.h"
#include "tests/support/environment.h"

namespace ksw::agentserver::test {

namespace agent = protocol::agent;
namespace manager = protocol::manager;
using daemon::test::Process;

class AgentHost : public daemon::test::DaemonHost {
public:
    AgentHost() {
        root().makeFolder("home");
        root().makeFolder("run/user/" + std::to_string(::geteuid()));
    }

    /// Starts kestrelwoodagent and waits until it is ready; null when it ended instead.
    std::unique_ptr<Process> startAgent() const {
        std::unique_ptr<Process> process = launchAgent();
        return waitFor(*process, "READY=1") ? std::move(process) : nullptr;
    }
    std::unique_ptr<Process> launchAgent() const;
    std::string storePath() const { return root().at("home/.local/state/kestrelwood/loginitems.db"); }

private:
    ksw::test::ScopedVariable home_{"HOME", root().at("home")};
    ksw::test::ScopedVariable runtime_{"XDG_RUNTIME_DIR", std::nullopt};
    ksw::test::ScopedVariable state_{"XDG_STATE_HOME", std::nullopt};
    ksw::test::ScopedVariable data_{"XDG_DATA_HOME", std::nullopt};
    ksw::test::ScopedVariable config_{"XDG_CONFIG_HOME", std::nullopt};
};

/// The URL that a job of this label is registered with here; no such file need exist.
std::optional<URL> jobURL(const std::string& label);
/// Registers a job's agent with the daemon, as the user who runs the test; its record.
std::shared_ptr<KSWItem> registerJob(const std::string& label);
/// The daemon's record of an item.
std::shared_ptr<KSWItem> recordOf(const KSWItem& item);

/// The agent's service, as a client of the session sees it.
class AgentClient {
public:
    /// "done", or the error's text.
    template <class... A, class... Given>
    std::string ask(const ipc::Method<ipc::Reply<std::optional<Error>>(A...)>& method, const Given&... arguments) {
        const auto reply = connection_.call(method, arguments...);
        if (!reply.ok()) {
            return "no reply: " + reply.error().description();
        }
        const std::optional<Error>& error = std::get<0>(*reply);
        return error ? error->description() : "done";
    }
    agent::LoginItems loginItems(std::uint64_t mask = KSWItemTypeAll) {
        const auto reply = connection_.call(agent::kGetLoginItems, mask);
        return reply.ok() ? std::get<0>(*reply) : std::nullopt;
    }
    /// The background items; absent with `error`.
    agent::BackgroundItems backgroundItems(std::optional<Error>* error = nullptr) {
        const auto reply = connection_.call(agent::kGetBackgroundItems);
        EXPECT_TRUE(reply.ok());
        if (error != nullptr && reply.ok()) {
            *error = std::get<1>(*reply);
        }
        return reply.ok() ? std::get<0>(*reply) : std::nullopt;
    }

private:
    ipc::Connection connection_{std::string(kAgentService), ipc::ConnectionOptions{}, __ksw_serviceInterface()};
};

/// Counts the session's announcements of changed items.
class Announcements {
public:
    /// Waits until the hub knows of it.
    Announcements() { waitForMore(); }

    /// Forgets those that have come, and waits for the next.
    void waitForMore() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return count_ > 0; });
        count_ = 0;
    }

private:
    void count() {
        const std::lock_guard lock(mutex_);
        ++count_;
        changed_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
    ipc::NotificationCenter center_{ipc::Domain::Session};
    ipc::NotificationCenter::Observation observation_ = center_.observe(
        std::string(kKSWBackgroundItemsChangeNotification), [this](const Notification&) { count(); });
};

}  // namespace ksw::agentserver::test
