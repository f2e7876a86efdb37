#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>

#include <kestrelwood/KSWErrors.h>

#include "client/protocol/manager_service.h"
#include "client/protocol/services.h"
#include "platform/ipc/connection.h"
#include "servers/common/set_aside.h"
#include "servers/common/sqlite.h"
#include "tests/servers/kestrelwoodd/daemon_inside.h"
#include "tests/servers/kestrelwoodd/daemon_process.h"

namespace ksw::daemon::test {

using namespace servers;
namespace {

namespace manager = protocol::manager;
using testing::HasSubstr;

bool exists(const std::string& path) {
    return access(path.c_str(), F_OK) == 0;
}

std::string bytesOf(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A caller with a connection of its own, as the user who runs the test.
class Client {
public:
    std::int64_t enter(std::string_view label) {
        const auto reply =
            connection_.call(manager::kRegisterItemOfURL, kNoURL, kType, jobURL(label), jobNamed(label), geteuid());
        return reply.ok() ? std::get<0>(*reply)->code() : KSWErrorGeneric;
    }
    std::shared_ptr<KSWItem> fetch(std::string_view label) {
        const auto reply =
            connection_.call(manager::kItemOfURL, kNoURL, kType, jobURL(label), jobNamed(label), geteuid());
        return reply.ok() ? std::get<0>(*reply)->firstItem() : nullptr;
    }

private:
    static constexpr std::int64_t kType = kLegacyAgent;
    ipc::Connection connection_{kManagerService, ipc::managementDaemonOptions(), GetManagerServiceInterface()};
};

class Kestrelwoodd : public testing::Test {
protected:
    DaemonHost host_;
};

TEST_F(Kestrelwoodd, ServesItsTwoServicesOnceItIsReady) {
    const std::unique_ptr<Process> daemon = host_.startReady();
    ASSERT_NE(daemon, nullptr);
    EXPECT_TRUE(exists(host_.socketPath("com.velmont.kestrelwood")));
    EXPECT_TRUE(exists(host_.socketPath("com.velmont.kestrelwood.registrar")));
    EXPECT_EQ(Client().enter("my.agent"), KSWErrorNone);
}

TEST_F(Kestrelwoodd, KeepsItsStateToItself) {
    const std::unique_ptr<Process> daemon = host_.startReady();
    ASSERT_NE(daemon, nullptr);
    struct stat facts {};
    ASSERT_EQ(stat(host_.root().at("var/lib/kestrelwood").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777U, 0700U);
    ASSERT_EQ(stat(host_.databasePath().c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777U, 0600U);
}

TEST_F(Kestrelwoodd, EndsCleanlyWhenToldTo) {
    for (const int number : {SIGTERM, SIGINT}) {
        const std::unique_ptr<Process> daemon = host_.startReady();
        ASSERT_NE(daemon, nullptr);
        Client().enter("my.agent");
        daemon->signal(number);
        EXPECT_TRUE(host_.waitFor(*daemon, "STOPPING=1"));
        const Ending ending = daemon->wait();
        EXPECT_EQ(ending.status, 0);
        EXPECT_EQ(ending.output, "");
        EXPECT_FALSE(exists(host_.socketPath("com.velmont.kestrelwood")));
        EXPECT_FALSE(exists(host_.socketPath("com.velmont.kestrelwood.registrar")));
        EXPECT_FALSE(exists(host_.databasePath() + "-wal"));
    }
}

TEST_F(Kestrelwoodd, RefusesToRunTwiceOnOneHostRoot) {
    const std::unique_ptr<Process> first = host_.startReady();
    ASSERT_NE(first, nullptr);
    const Ending second = host_.start()->wait();
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.output, HasSubstr("another kestrelwoodd has this folder"));
    EXPECT_EQ(Client().enter("my.agent"), KSWErrorNone);
}

TEST_F(Kestrelwoodd, KeepsItsRecordsWhenItIsStartedAgain) {
    std::unique_ptr<Process> daemon = host_.startReady();
    ASSERT_NE(daemon, nullptr);
    Client client;
    ASSERT_EQ(client.enter("my.agent"), KSWErrorNone);
    const std::optional<UUID> uuid = client.fetch("my.agent")->uuid();
    daemon->signal(SIGTERM);
    ASSERT_EQ(daemon->wait().status, 0);
    daemon = host_.startReady();
    ASSERT_NE(daemon, nullptr);
    ASSERT_NE(client.fetch("my.agent"), nullptr);
    EXPECT_EQ(client.fetch("my.agent")->uuid(), uuid);
    EXPECT_EQ(client.enter("my.agent"), KSWErrorRecordExists);
}

TEST_F(Kestrelwoodd, KeepsWhatItHasAcknowledgedWhenItIsKilled) {
    std::unique_ptr<Process> daemon = host_.startReady();
    ASSERT_NE(daemon, nullptr);
    Client client;
    ASSERT_EQ(client.enter("my.agent"), KSWErrorNone);
    daemon->signal(SIGKILL);
    EXPECT_EQ(daemon->wait().status, 128 + SIGKILL);
    daemon = host_.startReady();
    ASSERT_NE(daemon, nullptr);
    EXPECT_NE(client.fetch("my.agent"), nullptr);
}

TEST_F(Kestrelwoodd, LeavesAStoreOfANewerSchemaAlone) {
    {
        const std::unique_ptr<Process> daemon = host_.startReady();
        ASSERT_NE(daemon, nullptr);
        daemon->signal(SIGTERM);
        ASSERT_EQ(daemon->wait().status, 0);
        Result<Database> database = Database::open(host_.databasePath());
        ASSERT_TRUE(database.ok() && database->execute("PRAGMA journal_mode=DELETE; PRAGMA user_version=99").ok());
    }
    const std::string before = bytesOf(host_.databasePath());
    const Ending ending = host_.start()->wait();
    EXPECT_EQ(ending.status, 1);
    EXPECT_THAT(ending.output, HasSubstr("kestrelwood.db: has schema 99"));
    EXPECT_EQ(bytesOf(host_.databasePath()), before);
    EXPECT_FALSE(exists(host_.socketPath("com.velmont.kestrelwood")));
}

TEST_F(Kestrelwoodd, SetsADamagedStoreAsideAndSaysSo) {
    host_.root().writeFile("var/lib/kestrelwood/kestrelwood.db", "no database at all");
    std::unique_ptr<Process> daemon = host_.startReady();
    ASSERT_NE(daemon, nullptr);
    Client client;
    EXPECT_EQ(client.enter("my.agent"), KSWErrorNone);
    ASSERT_NE(client.fetch("my.agent"), nullptr);
    EXPECT_EQ(client.fetch("my.agent")->disposition(), KSWDispositionEnabled);
    daemon->signal(SIGTERM);
    const Ending ending = daemon->wait();
    EXPECT_EQ(ending.status, 0);
    const std::vector<std::string> folders = *setAsideFolders(host_.databasePath());
    ASSERT_EQ(folders.size(), 1U);
    EXPECT_EQ(bytesOf(folders.front() + "/kestrelwood.db"), "no database at all");
    EXPECT_THAT(ending.output, HasSubstr("\nkestrelwoodd: " + host_.databasePath() +
                                         ": is not a database; it was set aside in " + folders.front()));
}

TEST_F(Kestrelwoodd, SaysWhereItCannotKeepItsState) {
    host_.root().writeFile("var/lib", "a file where a folder should be");
    const Ending ending = host_.start()->wait();
    EXPECT_EQ(ending.status, 1);
    EXPECT_THAT(ending.output, HasSubstr(host_.root().at("var/lib")));
}

TEST_F(Kestrelwoodd, TellsTheServiceManagerThatItIsAlive) {
    const std::unique_ptr<Process> daemon = host_.startReady({"WATCHDOG_USEC=20000"});
    ASSERT_NE(daemon, nullptr);
    EXPECT_TRUE(host_.waitFor(*daemon, "WATCHDOG=1"));
    EXPECT_TRUE(host_.waitFor(*daemon, "WATCHDOG=1"));
}

TEST_F(Kestrelwoodd, RunsWithoutAServiceManager) {
    Process daemon({}, {"NOTIFY_SOCKET="});
    daemon.signal(SIGTERM);
    EXPECT_THAT(daemon.wait().status, testing::AnyOf(0, 128 + SIGTERM));
}

TEST(TheCommandLine, HasHelp) {
    const Ending ending = Process({"--help"}, {}).wait();
    EXPECT_EQ(ending.status, 0);
    EXPECT_THAT(ending.output, testing::StartsWith("Usage: kestrelwoodd"));
}

TEST(TheCommandLine, HasAVersion) {
    const Ending ending = Process({"--version"}, {}).wait();
    EXPECT_EQ(ending.status, 0);
    EXPECT_THAT(ending.output, testing::MatchesRegex("kestrelwoodd [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(TheCommandLine, IsRefusedWhenItSaysAnythingElse) {
    for (const char* word : {"--nonsense", "operand"}) {
        const Ending ending = Process({word}, {}).wait();
        EXPECT_EQ(ending.status, 2);
        EXPECT_THAT(ending.output, HasSubstr(word));
    }
}

}  // namespace
}  // namespace ksw::daemon::test
