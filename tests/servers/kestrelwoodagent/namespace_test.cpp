// The agent in a user namespace that has no user but its own, as a user's service manager starts it, beside a
// management daemon of uid 0. Only root can be somebody else, so as anybody else nothing is shown here.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include <kestrelwood/KSWErrors.h>

#include "servers/kestrelwoodagent/agent.h"
#include "tests/servers/kestrelwoodagent/agent_host.h"
#include "tests/support/child_program.h"
#include "tests/support/in_child.h"

namespace ksw::agentserver::test {
namespace {

constexpr Uid kUser = 54'321;

/// What the child does: serves until it is killed, and says so.
void serveInNamespace(const std::string& storePath) {
    if (!ksw::test::enterUserNamespace(kUser)) {
        static_cast<void>(::write(STDOUT_FILENO, "refused", 7));
        return;
    }
    std::optional<std::string> loss;
    const auto items = openLoginItems(storePath, loss);
    EXPECT_TRUE(items.ok()) << (items ? "" : items.error().description());
    Agent agent(**items, ipc::NotificationCenter::of(ipc::Domain::System), ::geteuid());
    const Status started = agent.start();
    EXPECT_TRUE(started.ok()) << (started ? "" : started.error().description());
    static_cast<void>(::write(STDOUT_FILENO, "serving", 7));
    char none = 0;
    static_cast<void>(::read(STDIN_FILENO, &none, 1));
}

/// Both servers, in a host root below the folder.
class Beside {
public:
    explicit Beside(const std::string& folder) : place_("TMPDIR", folder) {
        for (const std::string& own : {host_.root().at("home"), runtime()}) {
            host_.root().makeFolder(own.substr(host_.root().path().size() + 1));
            EXPECT_EQ(::chown(own.c_str(), kUser, kUser), 0);
        }
        setMode(0700);
        daemon_ = host_.startReady();
        agent_ = std::make_unique<ksw::test::ChildProgram>(
            [store = host_.root().at("home/loginitems.db")] { serveInNamespace(store); });
        isServing_ = agent_->awaitAnswer() == "serving";
    }
    /// False where the kernel forbids users a namespace, which has been said.
    bool isServing() const { return isServing_; }
    /// Who may enter the user's run folder.
    void setMode(mode_t mode) const { EXPECT_EQ(::chmod(runtime().c_str(), mode), 0); }
    void openToAll() const {
        setMode(0755);
        EXPECT_EQ(::chmod((runtime() + "/kestrelwood").c_str(), 0755), 0);
        EXPECT_EQ(::chmod((runtime() + "/kestrelwood/" + std::string(kAgentService)).c_str(), 0666), 0);
    }

private:
    std::string runtime() const { return host_.root().at("run/user/" + std::to_string(kUser)); }

    const ksw::test::ScopedVariable place_;
    const AgentHost host_;
    std::unique_ptr<Process> daemon_;
    std::unique_ptr<ksw::test::ChildProgram> agent_;
    bool isServing_ = false;
};

/// What the agent answers to the user who runs this, in a connection of its own.
template <class Method>
std::optional<Error> errorOf(const Method& method) {
    ipc::Connection connection(std::string(kAgentService), {ipc::Domain::Session, kUser}, __ksw_serviceInterface());
    const auto reply = [&] {
        if constexpr (std::is_same_v<Method, std::remove_cvref_t<decltype(agent::kGetLoginItems)>>) {
            return connection.call(method, std::uint64_t{KSWItemTypeAll});
        } else {
            return connection.call(method);
        }
    }();
    return reply ? std::get<1>(*reply) : std::optional(reply.error());
}

std::string textOf(const std::optional<Error>& error) {
    return error ? error->description() : "none";
}

bool isRoot() {
    if (::geteuid() != 0) {
        std::fputs("not tested, only root can be somebody else\n", stderr);
    }
    return ::geteuid() == 0;
}

TEST(AnAgentInANamespace, KnowsTheDaemonByItsPlaceAndServesRoot) {
    if (!isRoot()) {
        return;
    }
    const Beside host("/run");
    if (!host.isServing()) {
        return;
    }
    EXPECT_EQ(textOf(errorOf(agent::kGetLoginItems)), "none");
    EXPECT_EQ(textOf(errorOf(agent::kGetBackgroundItems)), "none");
}

TEST(AnAgentInANamespace, TakesWhoeverComesForAStrangerWhileOthersMayComeToo) {
    if (!isRoot()) {
        return;
    }
    const Beside host("/run");
    if (!host.isServing()) {
        return;
    }
    host.openToAll();
    const std::optional<Error> refusal = KSWErrorWithCode(KSWErrorPermissionDenied);
    ksw::test::asOrdinaryUser([&] { EXPECT_EQ(errorOf(agent::kGetLoginItems), refusal); });
    EXPECT_EQ(errorOf(agent::kGetLoginItems), refusal);
    host.setMode(0700);
    EXPECT_EQ(errorOf(agent::kGetLoginItems), refusal) << "the folder in it is open still";
}

TEST(AnAgentInANamespace, RefusesADaemonWhereAnybodyMakesFolders) {
    if (!isRoot()) {
        return;
    }
    const Beside host("/tmp");
    if (!host.isServing()) {
        return;
    }
    const std::optional<Error> error = errorOf(agent::kGetBackgroundItems);
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->code(), static_cast<std::int64_t>(ConnectionError::WrongPeer)) << error->description();
}

}  // namespace
}  // namespace ksw::agentserver::test
