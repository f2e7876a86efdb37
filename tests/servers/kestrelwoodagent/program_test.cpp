// The program kestrelwoodagent as its user runs it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <csignal>
#include <map>
#include <random>
#include <thread>

#include "servers/common/set_aside.h"
#include "tests/servers/kestrelwoodagent/agent_host.h"
#include "tests/servers/kestrelwoodagent/some_items.h"
#include "tests/support/sanitized.h"

namespace ksw::agentserver::test {
namespace {

using testing::HasSubstr;

class Kestrelwoodagent : public testing::Test {
protected:
    AgentHost host_;
};

TEST_F(Kestrelwoodagent, KeepsLoginItemsFromOneStartToTheNextAndEndsWhenAsked) {
    const Item item = itemOf(1);
    {
        const std::unique_ptr<Process> agent = host_.startAgent();
        ASSERT_NE(agent, nullptr);
        AgentClient client;
        EXPECT_EQ(client.ask(agent::kAddLoginItem, item), "done");
        agent->signal(SIGTERM);
        EXPECT_EQ(agent->wait().status, 0);
    }
    const std::unique_ptr<Process> agent = host_.startAgent();
    ASSERT_NE(agent, nullptr);
    AgentClient client;
    EXPECT_EQ(identifiersOf(*client.loginItems()), identifiersOf({item}));
}

TEST_F(Kestrelwoodagent, KeepsItsFilesToItself) {
    const std::unique_ptr<Process> agent = host_.startAgent();
    ASSERT_NE(agent, nullptr);
    const std::string session = host_.root().at("run/user/" + std::to_string(::geteuid()) + "/kestrelwood/");
    for (const std::string& path : {host_.storePath(), session + std::string(kAgentService), session + "notify"}) {
        struct stat facts {};
        ASSERT_EQ(stat(path.c_str(), &facts), 0) << path;
        EXPECT_EQ(facts.st_mode & 077U, 0U) << path;
    }
}

TEST_F(Kestrelwoodagent, IsThereOnceForAUser) {
    const std::unique_ptr<Process> agent = host_.startAgent();
    ASSERT_NE(agent, nullptr);
    const daemon::test::Ending second = host_.launchAgent()->wait();
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.output, HasSubstr("another kestrelwoodagent has this folder"));
}

TEST_F(Kestrelwoodagent, SetsADamagedStoreAside) {
    host_.root().writeFile("home/.local/state/kestrelwood/loginitems.db", std::string(5000, 'x'));
    const std::unique_ptr<Process> agent = host_.startAgent();
    ASSERT_NE(agent, nullptr);
    EXPECT_EQ(servers::setAsideFolders(host_.storePath())->size(), 1U);
    AgentClient client;
    EXPECT_EQ(client.ask(agent::kAddLoginItem, itemOf(1)), "done");
    agent->signal(SIGTERM);
    EXPECT_THAT(agent->wait().output, HasSubstr("; it was set aside in "));
}

TEST_F(Kestrelwoodagent, KilledAtAnyMomentLosesNothingThatItAcknowledged) {
    constexpr int kKills = ksw::test::sized(25, 4);
    constexpr std::uint64_t kFiles = 40;
    std::mt19937 random(20261121);
    std::map<std::uint64_t, std::optional<bool>> known;  // which are there; absent: nobody knows
    for (std::uint64_t file = 1; file <= kFiles; ++file) {
        known[file] = false;
    }
    for (int kill = 1; kill <= kKills && !HasFailure(); ++kill) {
        SCOPED_TRACE(testing::Message() << "kill " << kill);
        const std::unique_ptr<Process> agent = host_.startAgent();
        ASSERT_NE(agent, nullptr);
        AgentClient client;
        std::map<std::uint64_t, bool> found;
        const agent::LoginItems items = client.loginItems();
        for (const Item& item : *items) {
            found[facts::readBookmark(*item->bookmark())->file->identifier.inode] = true;
        }
        for (auto& [file, isThere] : known) {
            EXPECT_TRUE(!isThere || *isThere == found.contains(file)) << "file " << file;
            isThere = found.contains(file);
        }
        std::atomic<unsigned> acknowledged{0};
        const unsigned wanted = static_cast<unsigned>(random() % 20);
        const std::uint64_t seed = random();
        std::thread changing([&, seed] {
            std::mt19937_64 choice(seed);
            for (std::string answer = "done"; answer == "done";) {
                const std::uint64_t file = 1 + choice() % kFiles;
                const bool isThere = *known[file];
                known[file].reset();
                answer = isThere ? client.ask(agent::kRemoveLoginItem, itemOf(file))
                                 : client.ask(agent::kAddLoginItem, itemOf(file));
                if (answer == "done") {
                    known[file] = !isThere;
                    ++acknowledged;
                    acknowledged.notify_all();
                }
            }
        });
        for (unsigned seen = acknowledged; seen < wanted; seen = acknowledged) {
            acknowledged.wait(seen);
        }
        agent->signal(SIGKILL);
        changing.join();
        EXPECT_EQ(agent->wait().status, 128 + SIGKILL);
    }
}

}  // namespace
}  // namespace ksw::agentserver::test
