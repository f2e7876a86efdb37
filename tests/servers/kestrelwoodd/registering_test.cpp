#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/base/limits.h"
#include "platform/host/file_facts.h"
#include "tests/servers/kestrelwoodd/daemon_inside.h"

namespace ksw::daemon::test {
namespace {

constexpr KSWDisposition kLaunchable = KSWDispositionEnabled | KSWDispositionAllowed;

class Registering : public testing::Test {
protected:
    Answer enter(const Dictionary& configuration, const URL& url) {
        return daemon_.ask(&Operations::enter, owner_, kLegacyAgent, kNoURL, url, configuration, owner_.uid);
    }

    DaemonInside daemon_;
    const Caller owner_ = anOwner();
};

TEST_F(Registering, MakesARecordWithTheFactsOfTheConfiguration) {
    Dictionary job = jobNamed("my.agent");
    job[std::string(KSWConfigArguments)] = Array{"tool", "--now"};
    job[std::string(KSWConfigSHA256Checksum)] = Data(32, 7);
    const Answer answer = enter(job, jobURL("my.agent"));
    ASSERT_EQ(answer.code, KSWErrorNone);
    const KSWItem& item = *answer.item;
    EXPECT_EQ(item.identifier(), "8.my.agent");
    EXPECT_EQ(item.type(), kLegacyAgent);
    EXPECT_EQ(item.flags(), KSWItemFlagLegacy);
    EXPECT_EQ(item.name(), "tool");
    EXPECT_EQ(item.executablePath(), "/opt/tool");
    EXPECT_EQ(item.programArguments(), (std::vector<std::string>{"tool", "--now"}));
    EXPECT_EQ(item.sha256(), Data(32, 7));
    EXPECT_EQ(item.url(), jobURL("my.agent"));
    EXPECT_EQ(item.generation(), 0);
    EXPECT_TRUE(item.uuid().has_value());
    EXPECT_EQ(item.teamIdentifier(), std::nullopt);
    EXPECT_EQ(item.developerName(), "");
    EXPECT_EQ(item.lightweightRequirement(), std::nullopt);
}

TEST_F(Registering, NamesAnItemWithoutExecutableAfterItsLabel) {
    const Answer answer = enter({{std::string(KSWConfigLabel), Value("my.agent")}}, jobURL("my.agent"));
    ASSERT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(answer.item->name(), "my.agent");
    EXPECT_EQ(answer.item->executablePath(), std::nullopt);
}

TEST_F(Registering, TakesTheDatesOfTheFilesThatTheCallerMaySee) {
    const URL job = daemon_.writeJob("my.agent.plist", "my.agent");
    const std::string tool = daemon_.folder().writeFile("tool", "x");
    Dictionary configuration = jobNamed("my.agent");
    configuration[std::string(KSWConfigExecutablePath)] = tool;
    const Answer answer = enter(configuration, job);
    ASSERT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(answer.item->modificationDate(),
              host::fileFacts(job.path())->contentModificationDate.secondsSinceReference);
    EXPECT_EQ(answer.item->executableModificationDate(),
              host::fileFacts(tool)->contentModificationDate.secondsSinceReference);
}

TEST_F(Registering, HangsTheRecordUnderTheUnknownDeveloper) {
    const Answer answer = daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    const ItemPointer developer = answer.item->container();
    ASSERT_NE(developer, nullptr);
    EXPECT_EQ(developer->identifier(), "Unknown Developer");
    EXPECT_EQ(developer->type(), KSWItemTypeDeveloper);
    EXPECT_EQ(developer->name(), std::nullopt);
    EXPECT_EQ(developer->disposition(), KSWDispositionAllowed);
    EXPECT_TRUE(developer->isUnknownDeveloperRecord());
    EXPECT_EQ(daemon_.record(owner_.uid, "Unknown Developer"), developer);
}

TEST_F(Registering, PutsAllOfAUsersItemsUnderOneDeveloper) {
    daemon_.enterAgent(owner_, "first", owner_.uid);
    const Answer second = daemon_.enterAgent(owner_, "second", owner_.uid);
    EXPECT_EQ(second.item->container()->countOfEmbeddedItems(), 2U);
    EXPECT_EQ(daemon_.record(owner_.uid, "8.first")->container(), second.item->container());
}

TEST_F(Registering, LetsAnAgentLaunchAndADaemonNot) {
    EXPECT_EQ(daemon_.enterAgent(owner_, "my.agent", owner_.uid).item->disposition(), kLaunchable);
    EXPECT_EQ(daemon_.enterDaemon(kRoot, "my.daemon").item->disposition(), KSWDispositionEnabled);
}

TEST_F(Registering, DoesNotLetASecondUnknownDaemonInAfterTheFirstWasAllowed) {
    daemon_.enterDaemon(kRoot, "first");
    daemon_.allow(kEveryUser, "16.first");
    ASSERT_EQ(daemon_.record(kEveryUser, "16.first")->disposition(), kLaunchable);
    EXPECT_EQ(daemon_.enterDaemon(kRoot, "second").item->disposition(), KSWDispositionEnabled);
}

TEST_F(Registering, AgainKeepsWhatTheUserHasDecided) {
    daemon_.enterDaemon(kRoot, "my.daemon");
    daemon_.allow(kEveryUser, "16.my.daemon");
    EXPECT_EQ(daemon_.enterDaemon(kRoot, "my.daemon").code, KSWErrorRecordExists);
    Dictionary changed = jobNamed("my.daemon");
    changed[std::string(KSWConfigExecutablePath)] = "/opt/other";
    const Answer answer =
        daemon_.ask(&Operations::enter, kRoot, kLegacyDaemon, kNoURL, jobURL("my.daemon"), changed, 0);
    ASSERT_EQ(answer.code, KSWErrorRecordUpdated);
    EXPECT_EQ(answer.item->disposition(), kLaunchable);
}

TEST_F(Registering, RecordsADaemonForTheSystemWhoeverIsNamed) {
    EXPECT_EQ(daemon_.askOf(&Operations::enter, kRoot, kLegacyDaemon, "my.daemon", owner_.uid).code, KSWErrorNone);
    EXPECT_NE(daemon_.record(kEveryUser, "16.my.daemon"), nullptr);
    EXPECT_EQ(daemon_.record(owner_.uid, "16.my.daemon"), nullptr);
}

TEST_F(Registering, RecordsAnAgentOfEveryUserForTheSystem) {
    EXPECT_EQ(daemon_.enterAgent(kRoot, "my.agent", kEveryUser).code, KSWErrorNone);
    EXPECT_NE(daemon_.record(kEveryUser, "8.my.agent"), nullptr);
}

TEST_F(Registering, AgainAnswersTheRecordThatIsThere) {
    const Answer first = daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    const Answer second = daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    EXPECT_EQ(second.code, KSWErrorRecordExists);
    EXPECT_EQ(second.item, first.item);
    EXPECT_EQ(second.item->generation(), 0);
}

TEST_F(Registering, AgainWithOtherFactsUpdatesTheRecordAndKeepsItsIdentity) {
    const Answer first = daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    Dictionary changed = jobNamed("my.agent");
    changed[std::string(KSWConfigExecutablePath)] = "/opt/other";
    const Answer second = enter(changed, jobURL("my.agent"));
    ASSERT_EQ(second.code, KSWErrorRecordUpdated);
    EXPECT_EQ(second.item->uuid(), first.item->uuid());
    EXPECT_EQ(second.item->generation(), 1);
    EXPECT_EQ(second.item->executablePath(), "/opt/other");
    EXPECT_EQ(second.item->name(), "other");
    EXPECT_EQ(second.item->disposition(), first.item->disposition());
}

TEST_F(Registering, AgainAfterTheJobsFileChangedUpdatesTheRecord) {
    const URL job = daemon_.writeJob("my.agent.plist", "my.agent");
    ASSERT_EQ(enter(jobNamed("my.agent"), job).code, KSWErrorNone);
    const timespec times[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, job.path().c_str(), times, 0), 0);
    const Answer second = enter(jobNamed("my.agent"), job);
    EXPECT_EQ(second.code, KSWErrorRecordUpdated);
    EXPECT_EQ(second.item->modificationDate(), 1'000'000'000.0 - 978'307'200.0);
}

TEST_F(Registering, LeavesAFormerReaderOfTheFamilyWithWhatItHad) {
    const Answer first = daemon_.enterAgent(owner_, "first", owner_.uid);
    const ItemPointer developer = first.item->container();
    daemon_.enterAgent(owner_, "second", owner_.uid);
    EXPECT_EQ(developer->countOfEmbeddedItems(), 1U);
    EXPECT_EQ(first.item->container(), developer);
}

TEST_F(Registering, AnItemThatIsLegacyNoLongerTakesTheMarkAway) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    const Answer answer = daemon_.ask(&Operations::enter, owner_, KSWItemTypeAgent, URL::fileURL("/opt/My.app"),
                                      URL::fileURL("Contents/my.plist"), jobNamed("my.agent"), owner_.uid);
    ASSERT_EQ(answer.code, KSWErrorRecordUpdated);
    EXPECT_EQ(answer.item->type(), KSWItemTypeAgent);
    EXPECT_EQ(answer.item->flags(), 0U);
}

TEST_F(Registering, KeepsAnItemsPlaceRelativeToItsApplication) {
    const Answer answer = daemon_.ask(&Operations::enter, owner_, KSWItemTypeAgent, URL::fileURL("/opt/My.app"),
                                      URL::fileURL("Contents/my.plist"), jobNamed("my.agent"), owner_.uid);
    ASSERT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(answer.item->url()->relativePath(), "Contents/my.plist");
    EXPECT_EQ(answer.item->url()->path(), "/opt/My.app/Contents/my.plist");
}

TEST_F(Registering, BelievesProvenanceOfRootOnly) {
    const KSWItemType claimed = kLegacyAgent | KSWItemTypeManagedBit | KSWItemTypeCuratedBit |
                                KSWItemTypeProfileAddedBit | KSWItemTypeGlobalBit;
    EXPECT_EQ(daemon_.askOf(&Operations::enter, owner_, claimed, "a", owner_.uid).item->type(), kLegacyAgent);
    EXPECT_EQ(daemon_.askOf(&Operations::enter, kRoot, claimed, "b", owner_.uid).item->type(), claimed);
}

TEST_F(Registering, ReadsTheLabelFromTheJobsFileWhenTheConfigurationHasNone) {
    const URL job = daemon_.writeJob("job.plist", "from.the.file");
    const Answer answer =
        daemon_.ask(&Operations::enter, owner_, kLegacyAgent, kNoURL, job, kNoConfiguration, owner_.uid);
    ASSERT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(answer.item->identifier(), "8.from.the.file");
}

TEST_F(Registering, ReadsTheLabelFromAJobInsideItsApplication) {
    daemon_.writeJob("My.app/Contents/Jobs/job.plist", "inside");
    const Answer answer =
        daemon_.ask(&Operations::enter, kRoot, KSWItemTypeAgent, URL::fileURL(daemon_.folder().at("My.app")),
                    URL::fileURL("Contents/Jobs/job.plist"), kNoConfiguration, owner_.uid);
    ASSERT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(answer.item->identifier(), "8.inside");
}

TEST_F(Registering, ReadsNoFileThatTheCallerMayNotRead) {
    const URL job = daemon_.writeJob("secret.plist", "secret");
    ASSERT_EQ(chmod(job.path().c_str(), 0), 0);
    const Answer answer =
        daemon_.ask(&Operations::enter, owner_, kLegacyAgent, kNoURL, job, kNoConfiguration, owner_.uid);
    EXPECT_EQ(answer.code, KSWErrorInvalidParameter);
}

TEST_F(Registering, KnowsAUserItemByItsCanonicalPath) {
    const std::string file = daemon_.folder().writeFile("document", "");
    const std::string link = daemon_.folder().at("link");
    ASSERT_EQ(symlink(file.c_str(), link.c_str()), 0);
    const Answer answer = daemon_.ask(&Operations::enter, owner_, KSWItemTypeUserItem, kNoURL, URL::fileURL(link),
                                      kNoConfiguration, owner_.uid);
    ASSERT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(answer.item->identifier(), URL::fileURL(file).absoluteString());
}

TEST_F(Registering, KnowsAUserItemElsewhereByItsURL) {
    const Answer answer = daemon_.ask(&Operations::enter, owner_, KSWItemTypeUserItem, kNoURL,
                                      URL::fromString("https://example.org/a"), kNoConfiguration, owner_.uid);
    ASSERT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(answer.item->identifier(), "https://example.org/a");
}

TEST_F(Registering, QuietlyAnswersZeroForWhatIsThereAlready) {
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(daemon_.askOf(&Operations::enterQuietly, owner_, kLegacyAgent, "my.agent", owner_.uid).code,
                  KSWErrorNone);
    }
    Dictionary changed = jobNamed("my.agent");
    changed[std::string(KSWConfigExecutablePath)] = "/opt/other";
    EXPECT_EQ(
        daemon_
            .ask(&Operations::enterQuietly, owner_, kLegacyAgent, kNoURL, jobURL("my.agent"), changed, owner_.uid)
            .code,
        KSWErrorNone);
    EXPECT_EQ(daemon_.record(owner_.uid, "8.my.agent")->generation(), 1);
}

TEST_F(Registering, IsForgottenByNoRestart) {
    const Answer answer = daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    daemon_.enterDaemon(kRoot, "my.daemon");
    const std::string before = answer.item->dumpVerboseDescription();
    daemon_.restart();
    const ItemPointer after = daemon_.record(owner_.uid, "8.my.agent");
    ASSERT_NE(after, nullptr);
    EXPECT_EQ(after->dumpVerboseDescription(), before);
    EXPECT_EQ(after->container()->identifier(), "Unknown Developer");
    EXPECT_NE(daemon_.record(kEveryUser, "16.my.daemon"), nullptr);
}

TEST_F(Registering, IsRefusedWhenTheDiskIsFullAndChangesNothing) {
    daemon_.enterAgent(owner_, "before", owner_.uid);
    daemon_.restartWithPages(40);
    Dictionary large = jobNamed("large");
    large[std::string(KSWConfigExecutablePath)] = "/" + std::string(limits::kFieldMax - 1, 'x');
    large[std::string(KSWConfigSHA256Checksum)] = Data(limits::kFieldMax, 7);
    EXPECT_EQ(enter(large, jobURL("large")).code, KSWErrorGeneric);
    EXPECT_EQ(daemon_.record(owner_.uid, "8.large"), nullptr);
    EXPECT_NE(daemon_.record(owner_.uid, "8.before"), nullptr);
    EXPECT_EQ(daemon_.record(owner_.uid, "Unknown Developer")->countOfEmbeddedItems(), 1U);
}

}  // namespace
}  // namespace ksw::daemon::test
