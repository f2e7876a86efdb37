#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/servers/kestrelwoodd/daemon_inside.h"

namespace ksw::daemon::test {
namespace {

class Removing : public testing::Test {
protected:
    std::int64_t remove(const Caller& caller, KSWItemType type, const URL& url, Uid uid) {
        return daemon_.ask(&Operations::remove, caller, type, kNoURL, url, kNoConfiguration, uid).code;
    }

    DaemonInside daemon_;
    const Caller owner_ = anOwner();
};

TEST_F(Removing, ARecordMakesItUnknown) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    EXPECT_EQ(remove(owner_, kLegacyAgent, jobURL("my.agent"), owner_.uid), KSWErrorNone);
    EXPECT_EQ(daemon_.record(owner_.uid, "8.my.agent"), nullptr);
    EXPECT_EQ(remove(owner_, kLegacyAgent, jobURL("my.agent"), owner_.uid), KSWErrorRecordNotFound);
    daemon_.restart();
    EXPECT_EQ(daemon_.record(owner_.uid, "8.my.agent"), nullptr);
}

TEST_F(Removing, ADaemonTakesItFromTheSystem) {
    daemon_.enterDaemon(kRoot, "my.daemon");
    EXPECT_EQ(remove(kRoot, kLegacyDaemon, jobURL("my.daemon"), 0), KSWErrorNone);
    EXPECT_EQ(daemon_.record(kEveryUser, "16.my.daemon"), nullptr);
}

TEST_F(Removing, AnItemFindsItByTheLabelInItsFile) {
    const URL job = daemon_.writeJob("job.plist", "my.agent");
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    EXPECT_EQ(remove(owner_, kLegacyAgent, job, owner_.uid), KSWErrorNone);
    EXPECT_EQ(daemon_.record(owner_.uid, "8.my.agent"), nullptr);
}

TEST_F(Removing, AnItemWhoseFileIsGoneFindsItByItsURL) {
    const URL job = daemon_.writeJob("job.plist", "my.agent");
    ASSERT_EQ(daemon_.ask(&Operations::enter, owner_, kLegacyAgent, kNoURL, job, kNoConfiguration, owner_.uid).code,
              KSWErrorNone);
    ASSERT_EQ(unlink(job.path().c_str()), 0);
    EXPECT_EQ(remove(owner_, kLegacyAgent, job, owner_.uid), KSWErrorNone);
}

TEST_F(Removing, AUsersItemLeavesTheSystemsAlone) {
    daemon_.enterAgent(kRoot, "shared", kEveryUser);
    EXPECT_EQ(remove(owner_, kLegacyAgent, jobURL("shared"), owner_.uid), KSWErrorRecordNotFound);
    EXPECT_NE(daemon_.record(kEveryUser, "8.shared"), nullptr);
}

TEST_F(Removing, AnItemOfAnotherKindAtThatURLIsNotFound) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    EXPECT_EQ(remove(kRoot, kLegacyDaemon, jobURL("my.agent"), owner_.uid), KSWErrorRecordNotFound);
    EXPECT_NE(daemon_.record(owner_.uid, "8.my.agent"), nullptr);
}

TEST_F(Removing, OneOfTwoKeepsTheirDeveloper) {
    daemon_.enterAgent(owner_, "first", owner_.uid);
    daemon_.enterAgent(owner_, "second", owner_.uid);
    EXPECT_EQ(remove(owner_, kLegacyAgent, jobURL("first"), owner_.uid), KSWErrorNone);
    EXPECT_EQ(daemon_.record(owner_.uid, "Unknown Developer")->countOfEmbeddedItems(), 1U);
    daemon_.restart();
    EXPECT_EQ(daemon_.record(owner_.uid, "Unknown Developer")->countOfEmbeddedItems(), 1U);
}

TEST_F(Removing, TheLastTakesItsDeveloperAlong) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    EXPECT_EQ(remove(owner_, kLegacyAgent, jobURL("my.agent"), owner_.uid), KSWErrorNone);
    EXPECT_EQ(daemon_.record(owner_.uid, "Unknown Developer"), nullptr);
    EXPECT_TRUE(daemon_.operations().users(kRoot).empty());
    daemon_.restart();
    EXPECT_TRUE(daemon_.operations().users(kRoot).empty());
    EXPECT_EQ(daemon_.enterAgent(owner_, "my.agent", owner_.uid).code, KSWErrorNone);
}

class Refreshing : public Removing {
protected:
    Answer refresh(const URL& url, const std::optional<Dictionary>& configuration) {
        return daemon_.ask(&Operations::refresh, owner_, kLegacyAgent, kNoURL, url, configuration, owner_.uid);
    }
};

TEST_F(Refreshing, AnUnknownItemSaysSo) {
    EXPECT_EQ(refresh(jobURL("my.agent"), jobNamed("my.agent")).code, KSWErrorRecordNotFound);
    EXPECT_EQ(refresh(jobURL("my.agent"), kNoConfiguration).code, KSWErrorRecordNotFound);
}

TEST_F(Refreshing, ARecordThatIsUpToDateLeavesIt) {
    const Answer entered = daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    const Answer answer = refresh(jobURL("my.agent"), jobNamed("my.agent"));
    EXPECT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(answer.item, entered.item);
}

TEST_F(Refreshing, ARecordTakesTheFactsOfTheConfiguration) {
    daemon_.enterAgent(owner_, "my.agent", owner_.uid);
    Dictionary changed = jobNamed("my.agent");
    changed[std::string(KSWConfigExecutablePath)] = "/opt/other";
    const Answer answer = refresh(jobURL("my.agent"), changed);
    EXPECT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(answer.item->executablePath(), "/opt/other");
    EXPECT_EQ(answer.item->generation(), 1);
}

TEST_F(Refreshing, WithoutAConfigurationTakesTheFilesDatesOnly) {
    const URL job = daemon_.writeJob("job.plist", "my.agent");
    Dictionary named = jobNamed("my.agent");
    ASSERT_EQ(daemon_.ask(&Operations::enter, owner_, kLegacyAgent, kNoURL, job, named, owner_.uid).code,
              KSWErrorNone);
    const timespec times[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, job.path().c_str(), times, 0), 0);
    const Answer answer = refresh(job, kNoConfiguration);
    EXPECT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(answer.item->modificationDate(), 1'000'000'000.0 - 978'307'200.0);
    EXPECT_EQ(answer.item->executablePath(), "/opt/tool");
    EXPECT_EQ(answer.item->generation(), 1);
}

TEST_F(Refreshing, AUsersItemDoesNotTouchTheSystems) {
    daemon_.enterAgent(kRoot, "shared", kEveryUser);
    EXPECT_EQ(refresh(jobURL("shared"), jobNamed("shared")).code, KSWErrorRecordNotFound);
}

}  // namespace
}  // namespace ksw::daemon::test
