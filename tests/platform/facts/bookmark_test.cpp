#include <kestrelwood/KSWAdditions.h>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <filesystem>

#include <kestrelwood/KSWErrors.h>

#include <sys/stat.h>

#include "platform/facts/bookmark.h"
#include "platform/facts/bookmark_blob.h"
#include "platform/host/log_capture.h"
#include "platform/host/sys.h"
#include "tests/support/environment.h"
#include "tests/support/sys_faults.h"
#include "tests/support/temp_folder.h"

namespace ksw {
namespace {

using host::LogLevel;
using host::sys::Call;

class ABookmark : public testing::Test {
protected:
    Data make(const std::string& path) const {
        const std::optional<Data> bookmark = __ksw_bookmarkDataWithURL(URL::fileURL(path));
        EXPECT_TRUE(bookmark.has_value()) << path;
        return bookmark.value_or(Data());
    }

    test::TempFolder folder_;
    test::ScopedVariable home_{"HOME", folder_.makeFolder("home")};
    test::ScopedVariable data_{"XDG_DATA_HOME", std::nullopt};
    test::ScopedVariable language_{"LANGUAGE", "en"};
};

TEST_F(ABookmark, RecordsTheSixValuesAndItsFilesNameAndKind) {
    const Data bookmark = make(folder_.makeFolder("Writer.app"));
    const Dictionary expected{{kResourceKeyLocalizedName, "Writer"}, {kResourceKeyIsPackage, true},
                              {kResourceKeyIsDirectory, true},       {kResourceKeyIsApplication, true},
                              {kResourceKeyIsExecutable, true},      {kResourceKeyIsVolume, false},
                              {kResourceKeyName, "Writer.app"},      {kResourceKeyIsRegularFile, false}};
    EXPECT_EQ(facts::recordedValues(*facts::readBookmark(bookmark)), expected);
}

TEST_F(ABookmark, AnswersForTheKeysThatItRecords) {
    const Data bookmark = make(folder_.writeFile("letter.txt", ""));
    EXPECT_EQ(__ksw_resourcePropertyForKey(bookmark, kResourceKeyName), Value("letter.txt"));
    EXPECT_EQ(__ksw_resourcePropertyForKey(bookmark, kResourceKeyPath), Value(folder_.at("letter.txt")));
    EXPECT_EQ(__ksw_resourcePropertyForKey(bookmark, kResourceKeyCanonicalPath), std::nullopt);
    EXPECT_EQ(__ksw_resourcePropertyForKey(bookmark, "none"), std::nullopt);
    const Dictionary expected{{kResourceKeyIsRegularFile, true}, {kResourceKeyIsApplication, false}};
    EXPECT_EQ(
        __ksw_resourcePropertiesForKeys(bookmark, {kResourceKeyIsRegularFile, "none", kResourceKeyIsApplication}),
        expected);
}

TEST_F(ABookmark, RecordsADateToTheLastBitOfTheNumber) {
    const std::string path = folder_.writeFile("a", "");
    const auto touch = [&](long nanoseconds) {
        const std::array<timespec, 2> times{{{978'307'201, 0}, {978'307'201, nanoseconds}}};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0);
    };
    touch(123'456'789);
    const std::array<std::string_view, 1> keys{kResourceKeyContentModificationDate};
    const Data bookmark = *facts::makeBookmark(URL::fileURL(path), 0x2000'0000, keys);
    const auto recorded = __ksw_resourcePropertyForKey(bookmark, kResourceKeyContentModificationDate);
    EXPECT_EQ(recorded, Value(Date{1.123456789}));
    EXPECT_EQ(recorded, Value(host::fileFacts(path)->contentModificationDate));
    touch(123'456'790);
    EXPECT_NE(recorded, Value(host::fileFacts(path)->contentModificationDate));
}

TEST_F(ABookmark, OfAFileThatDoesNotExistYetIsOfItsPathAlone) {
    const host::LogCapture log;
    const Data bookmark = make(folder_.at("later.txt"));
    EXPECT_TRUE(log.at(LogLevel::Error).empty());
    EXPECT_EQ(__ksw_resourcePropertyForKey(bookmark, kResourceKeyPath), Value(folder_.at("later.txt")));
    EXPECT_FALSE(__ksw_isFileBookmark(bookmark));
    EXPECT_EQ(__ksw_resolveBookmark(bookmark), std::nullopt);
    folder_.writeFile("later.txt", "");
    bool isStale = false;
    EXPECT_EQ(__ksw_resolveBookmarkWithOptions(bookmark, 0x300, std::nullopt, &isStale),
              URL::fileURL(folder_.at("later.txt")));
    EXPECT_TRUE(isStale);
}

TEST_F(ABookmark, OfAMissingFileNeedsTheOptionForOne) {
    const URL url = URL::fileURL(folder_.at("none"));
    const auto without = facts::makeBookmark(url, 0x2000'0000);
    EXPECT_EQ(without.error(), Error(kObjectErrorDomain, 260, "\"" + folder_.at("none") + "\" does not exist"));
    EXPECT_TRUE(facts::makeBookmark(url, 0x3000'0000).ok());
    folder_.writeFile("file", "");
    EXPECT_EQ(facts::makeBookmark(URL::fileURL(folder_.at("file/none")), 0x2000'0000).error().code(), 260);
}

TEST_F(ABookmark, ThatCannotBeMadeIsAbsentWithAWordInTheLog) {
    const std::string path = folder_.writeFile("a", "");
    const host::LogCapture log;
    test::SysFaults faults;
    faults.failNth(Call::Statx, 1, EACCES);
    EXPECT_EQ(__ksw_bookmarkDataWithURL(URL::fileURL(path)), std::nullopt);
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines.front().level, LogLevel::Error);
    EXPECT_EQ(lines.front().fullForm, "Failed to create bookmark for URL file://" + path +
                                          " with error Error Domain=KSWPosixErrorDomain Code=13 \"statx(\"" + path +
                                          "\"): Permission denied\"");
    EXPECT_TRUE(
        lines.front().publicForm.starts_with("Failed to create bookmark for URL <private> with error Error"));
}

TEST_F(ABookmark, OfNoUrlIsAbsentWithAWordInTheLog) {
    const host::LogCapture log;
    EXPECT_EQ(__ksw_bookmarkDataWithURL(std::nullopt), std::nullopt);
    EXPECT_EQ(__ksw_bookmarkDataWithURLString(std::nullopt), std::nullopt);
    EXPECT_EQ(__ksw_bookmarkDataWithURLString("file:///a b"), std::nullopt);
    EXPECT_EQ(log.count("Failed to create bookmark for URL (null) with error Error Domain=KSWStatusErrorDomain "
                        "Code=-50 \"no URL\""),
              3U);
    EXPECT_EQ(__ksw_bookmarkDataWithURLString("letter.txt"), std::nullopt);
    EXPECT_EQ(__ksw_bookmarkDataWithURLString("file:letter.txt"), std::nullopt);
    EXPECT_EQ(log.at(LogLevel::Error).size(), 5U);
}

TEST_F(ABookmark, OfAUrlAsTextIsThatOfTheUrl) {
    const std::string path = folder_.writeFile("a b%", "");
    EXPECT_EQ(__ksw_bookmarkDataWithURLString(URL::fileURL(path).absoluteString()), make(path));
}

TEST_F(ABookmark, IsAFilesWhenItRecordsWhetherThatIsARegularOne) {
    EXPECT_TRUE(__ksw_isFileBookmark(make(folder_.writeFile("a", ""))));
    EXPECT_TRUE(__ksw_isFileBookmark(make(folder_.path())));
    EXPECT_FALSE(__ksw_isFileBookmark(*__ksw_bookmarkDataWithURLString("https://example.com/a")));
    EXPECT_FALSE(__ksw_isFileBookmark(Data{1, 2, 3}));
}

TEST_F(ABookmark, MatchesOneOfTheSameFileWhereverThatWasThen) {
    const std::string path = folder_.writeFile("a", "");
    const Data before = make(path);
    std::filesystem::rename(path, folder_.at("b"));
    const Data after = make(folder_.at("b"));
    EXPECT_TRUE(__ksw_matchBookmark(before, after, 0x8000));
    EXPECT_FALSE(__ksw_matchBookmark(before, after, 0x8001));
}

TEST_F(ABookmark, MatchesOneOfAnotherFileAtTheSamePathLess) {
    const std::string path = folder_.writeFile("a", "");
    const Data before = make(path);
    std::filesystem::rename(folder_.writeFile("b", ""), path);
    const Data after = make(path);
    EXPECT_FALSE(__ksw_matchBookmark(before, after, 0x8000));
    EXPECT_TRUE(__ksw_matchBookmark(before, after, kBookmarkMatchPath));
    EXPECT_FALSE(__ksw_matchBookmark(before, make(folder_.path()), kBookmarkMatchPath));
}

TEST_F(ABookmark, IsComparedWithoutLookingAtFiles) {
    const Data bookmark = make(folder_.writeFile("a", ""));
    const test::SysFaults faults;
    EXPECT_TRUE(__ksw_matchBookmark(bookmark, bookmark, 0x8000));
    EXPECT_EQ(faults.count(Call::Statx) + faults.count(Call::Open) + faults.count(Call::StatFs), 0U);
}

TEST_F(ABookmark, MatchesNothingWhenItIsNone) {
    const Data bookmark = make(folder_.writeFile("a", ""));
    EXPECT_FALSE(__ksw_matchBookmark(Data{1}, Data{1}, 1));
    EXPECT_FALSE(__ksw_matchBookmark(bookmark, Data(), 1));
    EXPECT_TRUE(__ksw_matchBookmark(bookmark, Data(), 0));
}

TEST_F(ABookmark, OfAnotherSchemeIsTheUrlItself) {
    const Data bookmark = *__ksw_bookmarkDataWithURLString("https://example.com/a");
    bool isStale = true;
    EXPECT_EQ(__ksw_resolveBookmarkWithOptions(bookmark, 0x300, std::nullopt, &isStale),
              URL::fromString("https://example.com/a"));
    EXPECT_FALSE(isStale);
    EXPECT_EQ(__ksw_displayName(bookmark), "https://example.com/a");
    EXPECT_TRUE(__ksw_matchBookmark(bookmark, *__ksw_bookmarkDataWithURLString("https://example.com/a"), 0x8000));
    EXPECT_FALSE(__ksw_matchBookmark(bookmark, *__ksw_bookmarkDataWithURLString("https://example.com/b"), 1));
}

TEST_F(ABookmark, ShowsTheRecordedLocalizedNameWithoutLookingAtFiles) {
    const Data bookmark = make(folder_.makeFolder("Writer.app"));
    const test::SysFaults faults;
    EXPECT_EQ(__ksw_displayName(bookmark), "Writer");
    EXPECT_EQ(faults.count(Call::Statx) + faults.count(Call::Open) + faults.count(Call::StatFs), 0U);
}

TEST_F(ABookmark, ShowsTheRecordedNameWhenNoLocalizedOneIs) {
    const URL url = URL::fileURL(folder_.makeFolder("Writer.app"));
    EXPECT_EQ(__ksw_displayName(*facts::makeBookmark(url, 0x2000'0000)), "Writer.app");
}

TEST_F(ABookmark, ShowsTheNameInItsPathWhenNoOtherIsRecorded) {
    EXPECT_EQ(__ksw_displayName(make(folder_.at("later.tar.gz"))), "later.tar");
    EXPECT_EQ(__ksw_displayName(make(folder_.at(".profile"))), ".profile");
    EXPECT_EQ(__ksw_displayName(make(folder_.at("dot."))), "dot.");
    EXPECT_EQ(__ksw_displayName(make(folder_.at("na\xFFme.x"))), "na\xEF\xBF\xBDme");
}

TEST_F(ABookmark, ShowsNothingWhenItIsNone) {
    EXPECT_EQ(__ksw_displayName(Data{1, 2, 3}), std::nullopt);
    EXPECT_EQ(__ksw_displayName(Data()), std::nullopt);
}

TEST_F(ABookmark, OfAFileInTheTrashDoesNotResolve) {
    const std::string path = folder_.writeFile("Writer.app/Contents/Info.plist", "");
    const Data bookmark = make(folder_.at("Writer.app"));
    const std::string trash = folder_.makeFolder("home/.local/share/Trash/files");
    std::filesystem::rename(folder_.at("Writer.app"), trash + "/Writer.app");
    std::optional<Error> error;
    bool isStale = false;
    EXPECT_EQ(__ksw_resolveBookmarkWithOptions(bookmark, 0x300, std::nullopt, &isStale, &error), std::nullopt);
    EXPECT_EQ(error, KSWErrorWithCode(-99));
    EXPECT_EQ(error->localizedDescription(), "bookmark resolved to URL in the trash");
    EXPECT_TRUE(isStale);
    EXPECT_EQ(__ksw_resolveBookmark(bookmark), std::nullopt);
}

TEST_F(ABookmark, IsResolvedWithAWordInTheDebugLog) {
    const Data bookmark = make(folder_.writeFile("a", ""));
    const host::LogCapture log;
    EXPECT_EQ(__ksw_resolveBookmark(bookmark), URL::fileURL(folder_.at("a")));
    EXPECT_EQ(log.at(LogLevel::Debug), std::vector<std::string>{"Resolve bookmark with options: 768"});
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(ABookmark, ThatIsNoneDoesNotResolve) {
    std::optional<Error> error;
    EXPECT_EQ(__ksw_resolveBookmarkWithOptions(Data{0xA0}, 0x300, std::nullopt, nullptr, &error), std::nullopt);
    EXPECT_EQ(error, Error(FormatError::Malformed, "bookmark: no version"));
}

TEST_F(ABookmark, RelativeToAUrlIsResolvedBelowAnother) {
    folder_.writeFile("one/sub/a", "");
    folder_.writeFile("two/sub/a", "");
    const URL one = URL::fileURL(folder_.at("one"), PathKind::Directory);
    const auto bookmark = facts::makeBookmark(URL::fileURL(folder_.at("one/sub/a")), 0x2000'0000, {}, &one);
    EXPECT_EQ(facts::readBookmark(*bookmark)->path, "sub/a");
    bool isStale = true;
    EXPECT_EQ(__ksw_resolveBookmarkWithOptions(*bookmark, 0x300, one, &isStale),
              URL::fileURL(folder_.at("one/sub/a")));
    EXPECT_FALSE(isStale);
    EXPECT_EQ(__ksw_resolveBookmarkWithOptions(*bookmark, 0x300, URL::fileURL(folder_.at("two/file")), &isStale),
              URL::fileURL(folder_.at("two/sub/a")));
    EXPECT_TRUE(isStale);
    std::optional<Error> error;
    EXPECT_EQ(__ksw_resolveBookmarkWithOptions(*bookmark, 0x300, std::nullopt, nullptr, &error), std::nullopt);
    EXPECT_EQ(error, Error(kStatusErrorDomain, -50, "the bookmark is relative to a file URL that is not given"));
}

}  // namespace
}  // namespace ksw
