#include "servers/kestrelwoodd/known_jobs.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/facts/code.h"
#include "tests/servers/kestrelwoodd/signed_items.h"
#include "tests/support/manual_clock.h"

namespace ksw::daemon::test {
namespace {

/// A signed program and its job, recorded and found right, at a time when nothing has changed for a minute.
class AKnownJob : public ASignedItem {
protected:
    AKnownJob() {
        clock_.advance(std::chrono::nanoseconds(
            static_cast<std::int64_t>((host::systemClock().wall().secondsSinceReference + 60) * 1e9)));
        item_.type = kLegacyAgent;
        item_.url = daemon_.writeJob("my.agent.plist", "my.agent");
        item_.configuration = job("my.agent", program_);
        item_.uid = owner_.uid;
        item_.scope = owner_.uid;
        record_->setUrl(item_.url);
        record_->setExecutablePath(program_);
        judge();
        known_.remember(*record_, filesNow());
    }

    /// What making a record of the job does with its program.
    void judge() {
        const auto code = facts::StaticCode::open(program_, verifier_);
        ASSERT_TRUE(code.ok());
        static_cast<void>(code->facts());
    }
    JobFiles filesNow() const { return filesOfPlainJob(item_, owner_).value(); }
    bool isKnown() { return known_.isKnown(*record_, item_, filesNow()); }
    void touch(const std::string& path) { ksw::test::setChanged(path, 1'790'000'000 + ++replacements_, 0); }

    ksw::test::ManualClock clock_;
    facts::Verifier verifier_{clock_};
    KnownJobs known_{verifier_};
    const std::string program_ = program("tool");
    LaunchItem item_;
    const ItemPointer record_ = KSWItem::initWithType(kLegacyAgent, "8.my.agent");
};

TEST_F(AKnownJob, IsKnownWhileNothingOfItHasChanged) {
    EXPECT_TRUE(isKnown());
    EXPECT_TRUE(isKnown());
}

TEST_F(AKnownJob, IsAnotherOnceItsProgramWasReplaced) {
    replace(program_, "Other Works");
    EXPECT_FALSE(isKnown());
}

TEST_F(AKnownJob, IsAnotherOnceItsProgramWasWrittenWithItsDateSetBack) {
    const auto date = std::filesystem::last_write_time(program_);
    std::ofstream(program_, std::ofstream::app) << 'x';
    std::filesystem::resize_file(program_, std::filesystem::file_size(program_) - 1);
    std::filesystem::last_write_time(program_, date);
    EXPECT_FALSE(isKnown());
}

TEST_F(AKnownJob, IsAnotherOnceItsFileWasTouched) {
    touch(item_.url->path());
    EXPECT_FALSE(isKnown());
}

TEST_F(AKnownJob, IsAnotherOnceItsProgramHasGone) {
    std::filesystem::remove(program_);
    EXPECT_FALSE(isKnown());
}

TEST_F(AKnownJob, IsAnotherOnceItsRecordHasChanged) {
    record_->setGeneration(record_->generation() + 1);
    EXPECT_FALSE(isKnown());
}

TEST_F(AKnownJob, IsNoneThatHasAnotherRecord) {
    record_->setUuid(UUID::random());
    EXPECT_FALSE(isKnown());
}

TEST_F(AKnownJob, IsAnotherOnceTheHostTrustsOthers) {
    trust(certificates_.root("another", {}));
    EXPECT_FALSE(isKnown());
}

TEST_F(AKnownJob, IsAnotherOnceItsSignersCertificateHasExpired) {
    clock_.advance(std::chrono::hours(24 * 366 * 30));
    EXPECT_FALSE(isKnown());
}

TEST_F(AKnownJob, IsAnotherInARequestThatSaysOtherwise) {
    const LaunchItem asked = item_;
    item_.configuration->insert_or_assign(std::string(KSWConfigArguments), Array{program_, "-v"});
    EXPECT_FALSE(isKnown());
    item_ = asked;
    item_.configuration->insert_or_assign(std::string(KSWConfigSHA256Checksum), Data(32, 7));
    EXPECT_FALSE(isKnown());
    item_ = asked;
    item_.type |= KSWItemTypeManagedBit;
    EXPECT_FALSE(isKnown());
    item_ = asked;
    item_.url = jobURL("elsewhere");
    EXPECT_FALSE(isKnown());
}

TEST_F(AKnownJob, IsAnotherForAnotherUser) {
    const std::optional<JobFiles> files = filesOfPlainJob(item_, Caller{owner_.uid, owner_.gid + 1});
    ASSERT_TRUE(files);
    EXPECT_FALSE(known_.isKnown(*record_, item_, *files));
}

TEST_F(AKnownJob, IsAnotherWhenSomebodyElseIsNamedAsItsMaker) {
    record_->setCurated(true);
    EXPECT_FALSE(isKnown());
}

TEST_F(AKnownJob, IsLearnedAnewWithItsNewFiles) {
    touch(program_);
    judge();
    known_.remember(*record_, filesNow());
    EXPECT_TRUE(isKnown());
}

TEST_F(AKnownJob, IsNoneWhoseProgramNobodySigned) {
    const std::string unsignedProgram = program("plain", std::nullopt);
    item_.configuration = job("my.agent", unsignedProgram);
    record_->setExecutablePath(unsignedProgram);
    known_.remember(*record_, filesNow());
    EXPECT_FALSE(isKnown());
}

TEST_F(AKnownJob, IsNoneWhoseProgramChangedAMomentAgo) {
    clock_.advance(-std::chrono::seconds(120));
    touch(program_);
    judge();
    known_.remember(*record_, filesNow());
    EXPECT_FALSE(isKnown());
}

class AJobThatIsNotPlain : public AKnownJob {
protected:
    bool isPlain() const { return filesOfPlainJob(item_, owner_).has_value(); }
    void say(std::string_view key, Value value) {
        item_.configuration->insert_or_assign(std::string(key), std::move(value));
    }
};

TEST_F(AJobThatIsNotPlain, IsAnythingButALegacyJob) {
    EXPECT_TRUE(isPlain());
    item_.type = KSWItemTypeAgent;
    EXPECT_FALSE(isPlain());
    item_.type = KSWItemTypeUserItem;
    EXPECT_FALSE(isPlain());
}

TEST_F(AJobThatIsNotPlain, IsALauncher) {
    for (const char* launcher : {"open", "/usr/bin/open"}) {
        say(KSWConfigArguments, Array{launcher, "-a", "/Applications/My.app"});
        EXPECT_FALSE(isPlain()) << launcher;
    }
}

TEST_F(AJobThatIsNotPlain, RunsInAnApplication) {
    say(KSWConfigExecutablePath, "/opt/My.app/Contents/tool");
    EXPECT_FALSE(isPlain());
}

TEST_F(AJobThatIsNotPlain, IsClaimedByAnApplication) {
    say(KSWConfigBundleIdentifiers, Array{"com.example.app"});
    EXPECT_FALSE(isPlain());
}

TEST_F(AJobThatIsNotPlain, NamesItsProgramFromElsewhereOrNotAtAll) {
    say(KSWConfigExecutablePath, "bin/tool");
    EXPECT_FALSE(isPlain());
    item_.configuration->erase(std::string(KSWConfigExecutablePath));
    EXPECT_FALSE(isPlain());
}

TEST_F(AJobThatIsNotPlain, HasItsWordsInItsFileOnly) {
    item_.configuration.reset();
    EXPECT_FALSE(isPlain());
}

}  // namespace
}  // namespace ksw::daemon::test
