// The agent in this process, the management daemon as a process of its own, and a client of the agent.
#include "servers/kestrelwoodagent/agent.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <filesystem>
#include <future>

#include <kestrelwood/KSWErrors.h>

#include "agent/values/login_item_archive.h"
#include "platform/archive/keyed_archive.h"
#include "platform/host/log_capture.h"
#include "tests/servers/kestrelwoodagent/agent_host.h"
#include "tests/servers/kestrelwoodagent/some_items.h"

namespace ksw::agentserver::test {
namespace {

using testing::HasSubstr;

const std::optional<URL> kNoURL;

class AnAgent : public testing::Test {
protected:
    AnAgent() {
        std::optional<std::string> loss;
        Result<std::unique_ptr<LoginItems>> items = openLoginItems(host_.root().at("loginitems.db"), loss);
        EXPECT_TRUE(items.ok());
        items_ = *std::move(items);
        agent_ = std::make_unique<Agent>(*items_, center_, ::geteuid());
        const Status started = agent_->start();
        EXPECT_TRUE(started.ok()) << started.error().description();
    }

    AgentHost host_;
    ipc::NotificationCenter center_{ipc::Domain::System};
    std::unique_ptr<LoginItems> items_;
    std::unique_ptr<Agent> agent_;
    AgentClient client_;
};

TEST_F(AnAgent, KeepsLoginItemsForItsClients) {
    const std::vector<Item> items = itemsOf(1, 2);
    EXPECT_EQ(client_.ask(agent::kAddLoginItem, items[0]), "done");
    EXPECT_EQ(client_.ask(agent::kAddLoginItem, items[1]), "done");
    EXPECT_EQ(identifiersOf(*client_.loginItems()), identifiersOf(items));
    EXPECT_EQ(client_.loginItems(KSWItemTypeDaemon)->size(), 0U);
    EXPECT_EQ(client_.ask(agent::kRemoveLoginItem, items[0]), "done");
    EXPECT_EQ(client_.ask(agent::kRemoveLoginItem, items[0]),
              KSWErrorWithCode(KSWErrorRecordNotFound).description());
    EXPECT_EQ(identifiersOf(*client_.loginItems()), identifiersOf({items[1]}));
}

TEST_F(AnAgent, TakesNothingThatIsNoLoginItem) {
    EXPECT_EQ(client_.ask(agent::kAddLoginItem, Item()),
              R"(Error Domain=KSWStatusErrorDomain Code=-50 "no login item")");
    EXPECT_EQ(client_.ask(agent::kRemoveLoginItem, Item()),
              R"(Error Domain=KSWStatusErrorDomain Code=-50 "no login item")");
}

TEST_F(AnAgent, TellsOfEachChangeOfLoginItems) {
    Announcements announcements;
    const Item item = itemOf(1);
    EXPECT_EQ(client_.ask(agent::kAddLoginItem, item), "done");
    announcements.waitForMore();
    EXPECT_EQ(client_.ask(agent::kRemoveLoginItem, item), "done");
    announcements.waitForMore();
}

TEST_F(AnAgent, HandsOut1024LoginItems) {
    ASSERT_TRUE(items_->import(itemsOf(1, 1024)).ok());
    EXPECT_EQ(client_.loginItems()->size(), 1024U);
    EXPECT_THAT(client_.ask(agent::kAddLoginItem, itemOf(2000)), HasSubstr("a user has 1024 login items"));
}

TEST_F(AnAgent, SaysSoWhenNoSettingsProgramIsConfigured) {
    EXPECT_EQ(client_.ask(agent::kOpenLoginItems),
              R"(Error Domain=KSWStatusErrorDomain Code=-4 "no settings program is configured")");
}

TEST_F(AnAgent, StartsTheSettingsProgramThatTheUserHasConfiguredBeforeTheSystems) {
    const std::string pipe = host_.root().at("opened");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const auto configure = [&](const std::string& folder, const std::string& word) {
        host_.root().writeFile(
            folder + "/kestrelwood/agent.plist",
            "<plist version=\"1.0\"><dict><key>SettingsProgram</key><array><string>/bin/sh</string>"
            "<string>-c</string><string>echo \"$0\" &gt; \"$1\"</string><string>" +
                word + "</string><string>" + pipe + "</string></array></dict></plist>");
    };
    configure("etc", "system");
    configure("home/.config", "user");
    signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(client_.ask(agent::kOpenLoginItems), "done");
    const UniqueFd fd(open(pipe.c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 16> word{};
    EXPECT_EQ(read(fd.get(), word.data(), word.size()), 5);
    EXPECT_EQ(std::string(word.data()), "user\n");
    signal(SIGCHLD, SIG_DFL);
}

TEST_F(AnAgent, SaysWhatIsWrongWithItsConfiguration) {
    const std::string file = host_.root().at("home/.config/kestrelwood/agent.plist");
    const auto configure = [&](const std::string& value) {
        host_.root().writeFile("home/.config/kestrelwood/agent.plist",
                               "<plist version=\"1.0\">" + value + "</plist>");
    };
    configure("<array/>");
    EXPECT_THAT(client_.ask(agent::kOpenLoginItems), HasSubstr(file + ": dictionary expected"));
    for (const char* wrong : {"<string>/bin/true</string>", "<array/>"}) {
        configure("<dict><key>SettingsProgram</key>" + std::string(wrong) + "</dict>");
        EXPECT_THAT(client_.ask(agent::kOpenLoginItems),
                    HasSubstr(file + ": SettingsProgram: array of 1 to 64 strings expected"));
    }
    configure("<dict><key>SettingsProgram</key><array><integer>1</integer></array></dict>");
    EXPECT_THAT(client_.ask(agent::kOpenLoginItems), HasSubstr(file + ": SettingsProgram: string expected"));
    configure("<dict><key>SettingsProgram</key><array><string>/no/such/program</string></array></dict>");
    EXPECT_THAT(client_.ask(agent::kOpenLoginItems), HasSubstr("posix_spawnp(\"/no/such/program\"): No such file"));
    host_.root().writeFile("home/.config/kestrelwood/agent.plist", "nothing");
    EXPECT_THAT(client_.ask(agent::kOpenLoginItems), HasSubstr(file + ": "));
}

class AnAgentWithAnOldFile : public AnAgent {
protected:
    void write(const std::vector<Item>& items) const {
        const Data bytes = *archive::archiveArray<KSWLoginItem>(items, archive::Coder::Ordinary);
        host_.root().writeFile(kName, std::string(bytes.begin(), bytes.end()));
    }
    bool isThere() const { return std::filesystem::exists(host_.root().at(kName)); }

    static constexpr const char* kName = "home/.local/share/com.velmont.kestrelwoodagent/backgrounditems.ksw";
};

TEST_F(AnAgentWithAnOldFile, ImportsItsItemsAndRemovesItWhenAskedTo) {
    std::vector<Item> items;
    for (std::uint64_t file = 1; file <= 3; ++file) {
        items.push_back(
            KSWLoginItem::initWithBookmark(bookmarkOf("/opt/" + std::to_string(file), file), file == 2));
    }
    EXPECT_EQ(client_.ask(agent::kAddLoginItem, itemOf(3)), "done");
    write(items);
    Announcements announcements;
    EXPECT_EQ(client_.ask(agent::kImportRosterLoginItems, false), "done");
    announcements.waitForMore();
    EXPECT_TRUE(isThere());
    EXPECT_EQ(client_.ask(agent::kImportRosterLoginItems, true), "done");
    EXPECT_FALSE(isThere());
    const agent::LoginItems found = client_.loginItems();
    ASSERT_EQ(found->size(), 3U);
    EXPECT_TRUE(found->at(2)->hidden());
    EXPECT_EQ(found->at(2)->type(), KSWItemTypeUserItem);
    EXPECT_EQ(client_.ask(agent::kImportRosterLoginItems, true), "done");
}

TEST_F(AnAgentWithAnOldFile, LeavesItWhereItIsWhenItCannotImportAllOfIt) {
    write(itemsOf(1, 1025));
    EXPECT_THAT(client_.ask(agent::kImportRosterLoginItems, true), HasSubstr(": more than 1024 login items"));
    write({itemOf(1), KSWLoginItem::initWithBookmark(std::nullopt, false)});
    EXPECT_THAT(client_.ask(agent::kImportRosterLoginItems, true), HasSubstr("a login item without a bookmark"));
    for (const char* bytes : {"", "garbage", "\xa1\x64root\x81"}) {
        host_.root().writeFile(kName, bytes);
        EXPECT_THAT(client_.ask(agent::kImportRosterLoginItems, true), HasSubstr("backgrounditems.ksw: "));
    }
    EXPECT_TRUE(isThere());
    EXPECT_EQ(client_.loginItems()->size(), 0U);
}

TEST_F(AnAgentWithAnOldFile, TakesNoFolderAndNoPipeForIt) {
    const std::string path = host_.root().at(kName);
    host_.root().makeFolder(kName);
    EXPECT_THAT(client_.ask(agent::kImportRosterLoginItems, true), HasSubstr("Code=" + std::to_string(EINVAL)));
    std::filesystem::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_THAT(client_.ask(agent::kImportRosterLoginItems, true), HasSubstr("Code=" + std::to_string(EINVAL)));
}

/// Beside a management daemon.
class AnAgentOfADaemon : public AnAgent {
protected:
    AnAgentOfADaemon() { startDaemon(); }

    void startDaemon() { daemon_ = host_.startReady(); }

    /// The agent's item for a record; null when it has none.
    std::shared_ptr<KSWBackgroundItem> shown(const KSWItem& record) {
        const agent::BackgroundItems items = client_.backgroundItems();
        if (!items) {
            return nullptr;
        }
        const auto found = std::find_if(items->begin(), items->end(),
                                        [&](const auto& item) { return item->identifier() == record.uuid(); });
        return found == items->end() ? nullptr : *found;
    }

    std::unique_ptr<Process> daemon_;
};

TEST_F(AnAgentOfADaemon, ShowsItsItemsButNoDevelopers) {
    const auto record = registerJob("com.example.shown");
    const agent::BackgroundItems items = client_.backgroundItems();
    ASSERT_TRUE(items);
    ASSERT_EQ(items->size(), 1U);
    const KSWBackgroundItem& item = *items->front();
    EXPECT_EQ(item.identifier(), record->uuid());
    EXPECT_EQ(item.type(), record->type());
    EXPECT_EQ(item.userElection(), 1);
    EXPECT_EQ(item.name(), record->name());
    EXPECT_EQ(facts::readBookmark(*item.bookmark())->path, "/nowhere/com.example.shown.plist");
}

TEST_F(AnAgentOfADaemon, HandsItWhatTheUserDecides) {
    const auto record = registerJob("com.example.decided");
    Announcements announcements;
    EXPECT_EQ(client_.ask(agent::kSetElectionForIdentifier, std::int64_t{2}, record->uuid()), "done");
    announcements.waitForMore();
    EXPECT_FALSE(recordOf(*record)->isAllowed());
    EXPECT_EQ(shown(*record)->userElection(), 2);
    EXPECT_EQ(client_.ask(agent::kSetElectionForIdentifier, std::int64_t{2}, record->uuid()), "done");
    EXPECT_EQ(client_.ask(agent::kSetElectionForURL, std::int64_t{1}, jobURL("com.example.decided")), "done");
    EXPECT_TRUE(recordOf(*record)->isAllowed());
    EXPECT_TRUE(recordOf(*record)->isEnabled());
}

TEST_F(AnAgentOfADaemon, DecidesOnlyWhatIsADecisionAboutAnItem) {
    const auto record = registerJob("com.example.none");
    const std::string noElection =
        R"(Error Domain=KSWStatusErrorDomain Code=-50 "an election is 1 to allow or 2 to disallow")";
    for (const std::int64_t election : {std::int64_t{0}, std::int64_t{3}, std::int64_t{-1}}) {
        EXPECT_EQ(client_.ask(agent::kSetElectionForIdentifier, election, record->uuid()), noElection);
        EXPECT_EQ(client_.ask(agent::kSetElectionForURL, election, jobURL("com.example.none")), noElection);
    }
    const std::string noItem = KSWErrorWithCode(KSWErrorRecordNotFound).description();
    EXPECT_EQ(client_.ask(agent::kSetElectionForIdentifier, std::int64_t{1}, std::optional(UUID::random())),
              noItem);
    EXPECT_EQ(client_.ask(agent::kSetElectionForURL, std::int64_t{1}, jobURL("com.example.other")), noItem);
    EXPECT_THAT(client_.ask(agent::kSetElectionForIdentifier, std::int64_t{1}, std::optional<UUID>()),
                HasSubstr("-50"));
    EXPECT_THAT(client_.ask(agent::kSetElectionForURL, std::int64_t{1}, kNoURL), HasSubstr("-50"));
    EXPECT_TRUE(recordOf(*record)->isAllowed());
}

TEST_F(AnAgentOfADaemon, TellsOfTheDaemonsChanges) {
    const auto record = registerJob("com.example.told");
    Announcements announcements;
    registerJob("com.example.told.too");
    announcements.waitForMore();
    EXPECT_EQ(client_.backgroundItems()->size(), 2U);
}

TEST_F(AnAgentOfADaemon, GoesOnWithoutItAndFindsItAgain) {
    const auto record = registerJob("com.example.again");
    EXPECT_NE(shown(*record), nullptr);
    daemon_->signal(SIGKILL);
    daemon_->wait();
    std::optional<Error> error;
    EXPECT_EQ(client_.backgroundItems(&error), std::nullopt);
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), kConnectionErrorDomain);
    EXPECT_THAT(client_.ask(agent::kSetElectionForIdentifier, std::int64_t{2}, record->uuid()),
                HasSubstr("Domain=KSWConnectionErrorDomain"));
    EXPECT_EQ(client_.ask(agent::kAddLoginItem, itemOf(1)), "done");
    Announcements announcements;
    startDaemon();
    announcements.waitForMore();
    EXPECT_NE(shown(*record), nullptr);
}

TEST_F(AnAgentOfADaemon, AnswersWhatNeedsNoDaemonWhileThatStandsStill) {
    registerJob("com.example.slow");
    daemon_->signal(SIGSTOP);
    std::vector<std::future<std::size_t>> waiting;
    for (int number = 0; number < 8; ++number) {
        waiting.push_back(std::async(std::launch::async, [] {
            AgentClient client;
            const agent::BackgroundItems items = client.backgroundItems();
            return items ? items->size() : 0;
        }));
    }
    EXPECT_EQ(client_.ask(agent::kAddLoginItem, itemOf(1)), "done");
    EXPECT_EQ(client_.loginItems()->size(), 1U);
    daemon_->signal(SIGCONT);
    for (std::future<std::size_t>& asked : waiting) {
        EXPECT_EQ(asked.get(), 1U);
    }
}

TEST_F(AnAgentOfADaemon, EndsWhileTheDaemonIsBeingAsked) {
    daemon_->signal(SIGSTOP);
    std::future<bool> asked = std::async(std::launch::async, [] {
        ipc::Connection connection(std::string(kAgentService), ipc::ConnectionOptions{}, __ksw_serviceInterface());
        return connection.call(agent::kGetBackgroundItems).ok();
    });
    EXPECT_EQ(client_.loginItems()->size(), 0U);
    agent_.reset();
    EXPECT_FALSE(asked.get());
    daemon_->signal(SIGCONT);
}

}  // namespace
}  // namespace ksw::agentserver::test
