// agents.h: the agents that one suite of a user interface runs against.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "tests/agent/controllers/controller_test.h"
#include "tests/servers/kestrelwoodagent/agent_host.h"

namespace ksw::test {

/// An agent of this session that can be started and stopped any number of times and remembers its items.
class AnyAgent {
public:
    virtual ~AnyAgent() = default;
    virtual void start() = 0;
    virtual void stop() = 0;
    /// Has one more background item, which nobody has decided about.
    virtual void haveBackgroundItem() = 0;
};

/// The program itself, beside a management daemon.
class RealAgent final : public AnyAgent {
public:
    void start() override;
    void stop() override;
    void haveBackgroundItem() override;

private:
    void startDaemon();

    agentserver::test::AgentHost host_;
    std::unique_ptr<daemon::test::Process> daemon_;
    std::unique_ptr<daemon::test::Process> agent_;
};

/// A few lines that answer what an agent answers.
class ScriptAgent final : public AnyAgent {
public:
    void start() override;
    void stop() override;
    void haveBackgroundItem() override;

private:
    struct Running {
        ServedHub hub{ipc::Domain::Session};
        ScriptedAgent agent;
    };

    MaybeError add(const std::shared_ptr<KSWLoginItem>& item);
    MaybeError remove(const std::shared_ptr<KSWLoginItem>& item);
    MaybeError elect(std::int64_t election, const std::optional<UUID>& identifier);
    void serveLoginItems(Running& running);
    void serveBackgroundItems(Running& running);

    HostRoot root_;
    std::mutex mutex_;
    LoginItemList loginItems_;
    BackgroundItemList backgroundItems_;
    std::unique_ptr<Running> running_;
};

}  // namespace ksw::test
