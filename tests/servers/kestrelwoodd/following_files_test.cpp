// What records keep of their files: the names that people know them by, and the bookmarks that find them again.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/servers/kestrelwoodd/daemon_inside.h"
#include "tests/support/file_times.h"

namespace ksw::daemon::test {
namespace {

namespace fs = std::filesystem;

class ARecordOfAFile : public testing::Test {
protected:
    Answer ask(Operations::Operation operation, const std::string& path) {
        return daemon_.ask(operation, owner_, KSWItemTypeUserItem, kNoURL, URL::fileURL(path), kNoConfiguration,
                           owner_.uid);
    }
    /// The client's copy of the answer's item.
    static ItemPointer itemOf(const Answer& answer) {
        EXPECT_NE(answer.item, nullptr);
        return answer.item == nullptr ? std::make_shared<KSWItem>() : copyOfRecord(*answer.item);
    }
    std::string file(std::string_view name) { return daemon_.folder().writeFile(name, "x"); }

    DaemonInside daemon_;
    const Caller owner_ = anOwner();
};

TEST_F(ARecordOfAFile, OfAJobIsNamedAfterTheOutermostApplicationAroundItsExecutable) {
    file("Outer.app/Contents/Info.plist");
    Dictionary job = jobNamed("my.agent");
    job[std::string(KSWConfigExecutablePath)] = file("Outer.app/Helpers/Inner.app/Contents/Linux/tool");
    for (const auto operation : {&Operations::effectiveDisposition, &Operations::enter}) {
        daemon_.ask(operation, owner_, kLegacyAgent, kNoURL, jobURL("my.agent"), job, owner_.uid);
    }
    EXPECT_EQ(daemon_.record(owner_.uid, "8.my.agent")->name(), "Outer");
}

TEST_F(ARecordOfAFile, OfAUserIsNamedAsPeopleKnowTheFile) {
    fs::create_directory(daemon_.folder().at("Tool.app"));
    EXPECT_EQ(itemOf(ask(&Operations::enter, daemon_.folder().at("Tool.app")))->name(), "Tool");
    EXPECT_EQ(itemOf(ask(&Operations::enter, file("my 100% plan.txt")))->name(), "my 100% plan.txt");
}

TEST_F(ARecordOfAFile, OfAUserFindsTheFileAfterItWasMovedAndTheDaemonStartedAnew) {
    const std::string plan = file("plan.txt");
    const std::string identifier = *itemOf(ask(&Operations::enter, plan))->identifier();
    fs::rename(plan, daemon_.folder().at("moved.txt"));
    daemon_.restart();
    const ItemPointer item = copyOfRecord(*daemon_.record(owner_.uid, identifier));
    EXPECT_TRUE(item->syncURLAndBookmark());
    EXPECT_EQ(item->url(), URL::fileURL(daemon_.folder().at("moved.txt")));
}

TEST_F(ARecordOfAFile, KeepsItsDateExactlyAcrossARestart) {
    const std::string plan = file("plan.txt");
    ksw::test::setChanged(plan, 1'790'000'000, 123'456'789);
    const std::string identifier = *itemOf(ask(&Operations::enter, plan))->identifier();
    daemon_.restart();
    const ItemPointer item = copyOfRecord(*daemon_.record(owner_.uid, identifier));
    EXPECT_TRUE(item->modificationDateMatchesFileSystem());
    ksw::test::setChanged(plan, 1'790'000'000, 123'457'789);
    EXPECT_FALSE(item->modificationDateMatchesFileSystem());
}

TEST_F(ARecordOfAFile, StaysAsItIsWhenTheSameFileIsEnteredAgain) {
    const std::string plan = file("plan.txt");
    ASSERT_EQ(ask(&Operations::enter, plan).code, KSWErrorNone);
    EXPECT_EQ(ask(&Operations::enter, plan).code, KSWErrorRecordExists);
}

TEST_F(ARecordOfAFile, GetsANewBookmarkWhenTheFileIsReplaced) {
    const std::string plan = file("plan.txt");
    ksw::test::setChanged(plan, 1'790'000'000, 0);
    const ItemPointer entered = itemOf(ask(&Operations::enter, plan));
    const std::string other = file("other.txt");
    ksw::test::setChanged(other, 1'790'000'000, 0);
    fs::rename(other, plan);
    EXPECT_EQ(ask(&Operations::enter, plan).code, KSWErrorRecordUpdated);
    const ItemPointer updated = copyOfRecord(*daemon_.record(owner_.uid, *entered->identifier()));
    EXPECT_NE(updated->bookmark(), entered->bookmark());
    EXPECT_EQ(updated->resolvedURL(), URL::fileURL(plan));
    EXPECT_FALSE(updated->isResolvedURLStale());
}

TEST_F(ARecordOfAFile, OfAJobHasNoBookmark) {
    EXPECT_EQ(itemOf(daemon_.enterAgent(owner_, "my.agent", owner_.uid))->bookmark(), std::nullopt);
}

}  // namespace
}  // namespace ksw::daemon::test
