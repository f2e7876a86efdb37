// The dates of an item's files, compared with what the file system says now.
#include <gtest/gtest.h>

#include <filesystem>
#include <limits>

#include <kestrelwood/values/date.h>

#include "model/item/item_archive.h"
#include "platform/archive/keyed_archive.h"
#include "tests/model/item/items.h"
#include "tests/support/file_times.h"
#include "tests/support/temp_folder.h"

namespace {

using ksw::Date;
using ksw::URL;
using ksw::test::item;
using ksw::test::setChanged;

// An hour after the reference date a double tells nanoseconds; today it does not.
constexpr std::int64_t kEarly = ksw::kReferenceDateUnixSeconds + 3600;
constexpr std::int64_t kToday = 1'790'000'000;

double dateOf(std::int64_t seconds, std::uint32_t nanoseconds) {
    return Date::fromUnix(seconds, nanoseconds).secondsSinceReference;
}

struct AnItemsDate : testing::Test {
    ksw::test::TempFolder folder;
    std::string path = folder.writeFile("job.plist", "x");
    std::string program = folder.writeFile("program", "x");
    KSWItem::Pointer made = item(0x10008, "8.a");

    AnItemsDate() {
        made->setUrl(URL::fileURL(path));
        made->setExecutablePath(program);
    }

    /// The file has this date, and so has the item.
    void change(std::int64_t seconds, std::uint32_t nanoseconds) {
        setChanged(path, seconds, nanoseconds);
        made->setModificationDate(dateOf(seconds, nanoseconds));
    }
};

/// The item after a journey in an archive.
KSWItem::Pointer sent(const KSWItem& source) {
    const auto archive = ksw::archive::archive(source, ksw::archive::Coder::ServiceConnection);
    EXPECT_TRUE(archive.ok());
    ksw::archive::DecodeBudget budget(archive->size());
    const ksw::archive::ReadOptions options{.coder = ksw::archive::Coder::ServiceConnection};
    const auto read = ksw::archive::unarchive<KSWItem>(*archive, options, budget);
    EXPECT_TRUE(read.ok());
    return read->root;
}

TEST_F(AnItemsDate, MatchesTheFilesAsLongAsNobodyTouchesIt) {
    change(kToday, 123'456'789);
    EXPECT_TRUE(made->modificationDateMatchesFileSystem());
    setChanged(path, kToday + 1, 123'456'789);
    EXPECT_FALSE(made->modificationDateMatchesFileSystem());
    setChanged(path, kToday, 123'456'789);
    EXPECT_TRUE(made->modificationDateMatchesFileSystem());
}

TEST_F(AnItemsDate, TellsATouchOfOneNanosecond) {
    change(kEarly, 999'999'998);
    setChanged(path, kEarly, 999'999'999);
    EXPECT_FALSE(made->modificationDateMatchesFileSystem());
    setChanged(path, kEarly, 999'999'998);
    EXPECT_TRUE(made->modificationDateMatchesFileSystem());
}

TEST_F(AnItemsDate, TellsNanosecondsTodayWhereTheNumberDoes) {
    int told = 0;
    for (std::uint32_t nanosecond = 0; nanosecond < 300; ++nanosecond) {
        change(kToday, nanosecond);
        setChanged(path, kToday, nanosecond + 1);
        const bool isTold = dateOf(kToday, nanosecond) != dateOf(kToday, nanosecond + 1);
        ASSERT_EQ(made->modificationDateMatchesFileSystem(), !isTold) << nanosecond;
        told += isTold ? 1 : 0;
    }
    EXPECT_GT(told, 0);
}

TEST_F(AnItemsDate, IsTheSameAfterAJourneyInAnArchive) {
    for (std::int64_t seconds : {kEarly, kToday, std::int64_t{1}, std::int64_t{4'000'000'000}}) {
        for (std::uint32_t nanoseconds : {0U, 1U, 333'333'333U, 999'999'999U}) {
            change(seconds, nanoseconds);
            setChanged(program, seconds, nanoseconds);
            made->_setExecutableModificationDateFromURL(URL::fileURL(program));
            const KSWItem::Pointer arrived = sent(*sent(*made));
            EXPECT_TRUE(arrived->modificationDateMatchesFileSystem()) << seconds << "." << nanoseconds;
            EXPECT_TRUE(arrived->executableModificationDateMatchesFileSystem()) << seconds << "." << nanoseconds;
        }
    }
}

TEST_F(AnItemsDate, MatchesNothingWhereNoneCanBeRead) {
    std::filesystem::remove(path);
    EXPECT_EQ(made->modificationDate(), 0);
    EXPECT_FALSE(made->modificationDateMatchesFileSystem());
    made->setUrl(URL::fromString("https://example.com/job.plist"));
    EXPECT_FALSE(made->modificationDateMatchesFileSystem());
    made->setUrl(URL::fileURL("job.plist"));
    EXPECT_FALSE(made->modificationDateMatchesFileSystem());
    made->setUrl(std::nullopt);
    EXPECT_FALSE(made->modificationDateMatchesFileSystem());
}

TEST_F(AnItemsDate, ThatIsNoNumberMatchesNothing) {
    made->setModificationDate(std::numeric_limits<double>::quiet_NaN());
    EXPECT_FALSE(made->modificationDateMatchesFileSystem());
}

TEST_F(AnItemsDate, OfAFileInsideAnApplicationIsThatOfTheFileThere) {
    setChanged(folder.writeFile("A.app/Contents/job.plist", "x"), kToday, 5);
    made->setUrl(URL::fileURL("Contents/job.plist", URL::fileURL(folder.at("A.app"), ksw::PathKind::Directory)));
    made->setModificationDate(dateOf(kToday, 5));
    EXPECT_TRUE(made->modificationDateMatchesFileSystem());
}

TEST_F(AnItemsDate, FollowsTheLinkThatItsURLIs) {
    change(kToday, 1);
    std::filesystem::create_symlink(path, folder.at("link"));
    made->setUrl(URL::fileURL(folder.at("link")));
    EXPECT_TRUE(made->modificationDateMatchesFileSystem());
    setChanged(path, kToday + 1, 1);
    EXPECT_FALSE(made->modificationDateMatchesFileSystem());
}

TEST_F(AnItemsDate, OfItsExecutableIsComparedWithTheExecutable) {
    setChanged(program, kToday, 7);
    made->setExecutableModificationDate(dateOf(kToday, 7));
    EXPECT_TRUE(made->executableModificationDateMatchesFileSystem());
    setChanged(path, kToday + 5, 0);
    EXPECT_TRUE(made->executableModificationDateMatchesFileSystem());
    setChanged(program, kToday + 1, 7);
    EXPECT_FALSE(made->executableModificationDateMatchesFileSystem());
}

TEST_F(AnItemsDate, OfAnExecutableMatchesNothingWithoutOne) {
    for (const KSWItem::OptionalString& none :
         {KSWItem::OptionalString(), KSWItem::OptionalString(""), KSWItem::OptionalString("program"),
          KSWItem::OptionalString(folder.at("gone")), KSWItem::OptionalString(std::string("/\0x", 3))}) {
        made->setExecutablePath(none);
        EXPECT_FALSE(made->executableModificationDateMatchesFileSystem()) << none.value_or("none");
    }
}

TEST_F(AnItemsDate, OfItsExecutableIsTakenFromAFileThatCanBeRead) {
    setChanged(program, kEarly, 25);
    made->_setExecutableModificationDateFromURL(URL::fileURL(program));
    EXPECT_EQ(made->executableModificationDate(), dateOf(kEarly, 25));
    EXPECT_EQ(made->modificationDate(), 0);
    made->_setExecutableModificationDateFromURL(URL::fileURL(folder.at("gone")));
    made->_setExecutableModificationDateFromURL(*URL::fromString("https://example.com/"));
    EXPECT_EQ(made->executableModificationDate(), dateOf(kEarly, 25));
}

}  // namespace
