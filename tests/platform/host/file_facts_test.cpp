#include "platform/host/file_facts.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

#include "platform/host/sys.h"
#include "tests/support/flipping.h"
#include "tests/support/openings.h"
#include "tests/support/sys_faults.h"
#include "tests/support/temp_folder.h"

namespace ksw::host {
namespace {

class AFile : public testing::Test {
protected:
    test::TempFolder folder_;
};

TEST_F(AFile, IsARegularOneOrADirectory) {
    const auto file = fileFacts(folder_.writeFile("a", "x"));
    EXPECT_TRUE(file->isRegularFile);
    EXPECT_FALSE(file->isDirectory);
    const auto directory = fileFacts(folder_.path());
    EXPECT_TRUE(directory->isDirectory);
    EXPECT_FALSE(directory->isRegularFile);
}

TEST_F(AFile, IsAnApplicationWhenItIsADirectoryWithTheSuffix) {
    EXPECT_TRUE(fileFacts(folder_.makeFolder("Writer.app"))->isApplication);
    EXPECT_TRUE(fileFacts(folder_.at("Writer.app") + "/")->isApplication);
    EXPECT_FALSE(fileFacts(folder_.writeFile("file.app", ""))->isApplication);
    EXPECT_FALSE(fileFacts(folder_.makeFolder("Writer.apps"))->isApplication);
    EXPECT_FALSE(fileFacts(folder_.makeFolder(".app"))->isApplication);
}

TEST_F(AFile, TellsWhenItsContentChanged) {
    const std::string path = folder_.writeFile("a", "x");
    const std::array<timespec, 2> times{{{978'307'201, 0}, {978'307'201, 500'000'000}}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0);
    EXPECT_EQ(fileFacts(path)->contentModificationDate.secondsSinceReference, 1.5);
}

TEST_F(AFile, KeepsItsIdentifierWhenItMoves) {
    const std::string path = folder_.writeFile("a", "x");
    const FileIdentifier before = fileFacts(path)->identifier;
    ASSERT_TRUE(sys::rename(path, folder_.at("b")).ok());
    EXPECT_EQ(fileFacts(folder_.at("b"))->identifier, before);
    EXPECT_NE(fileFacts(folder_.writeFile("c", "x"))->identifier, before);
}

TEST_F(AFile, ThatIsMissingIsAnErrorThatNamesThePath) {
    const auto facts = fileFacts(folder_.at("none"));
    EXPECT_EQ(facts.error().domain(), kPosixErrorDomain);
    EXPECT_EQ(facts.error().code(), ENOENT);
    EXPECT_EQ(facts.error().localizedDescription(),
              "statx(\"" + folder_.at("none") + "\"): No such file or directory");
    EXPECT_FALSE(fileExists(folder_.at("none")));
    EXPECT_TRUE(fileExists(folder_.path()));
}

TEST_F(AFile, WithANulByteInItsPathIsRefused) {
    folder_.writeFile("a", "x");
    EXPECT_EQ(fileFacts(folder_.at("a") + std::string("\0b", 2)).error().code(), EINVAL);
}

TEST_F(AFile, HasACanonicalPath) {
    folder_.writeFile("real/a b%", "x");
    std::filesystem::create_directory_symlink("real", folder_.at("link"));
    EXPECT_EQ(*canonicalPath(folder_.at("link/../link/./a b%")), folder_.at("real/a b%"));
    EXPECT_EQ(*canonicalPath(folder_.at("real/../real//./a b%")), folder_.at("real/a b%"));
    EXPECT_EQ(*canonicalPath("/../.."), "/");
    EXPECT_EQ(canonicalPath(folder_.at("none")).error().code(), ENOENT);
    EXPECT_EQ(canonicalPath(folder_.at("none/../real")).error().code(), ENOENT);
}

TEST_F(AFile, BehindAnOutermostLinkHasACanonicalPath) {
    folder_.writeFile("real/inner/a", "x");
    std::filesystem::create_symlink(folder_.at("real/inner/a"), folder_.at("link"));
    EXPECT_EQ(*canonicalPath(folder_.at("link")), folder_.at("real/inner/a"));
    std::filesystem::create_symlink("loop", folder_.at("loop"));
    EXPECT_EQ(canonicalPath(folder_.at("loop")).error().code(), ELOOP);
}

TEST_F(AFile, IsReadWholeUpToItsLimitAndRefusedBeyond) {
    const std::string path = folder_.writeFile("a", "12345");
    EXPECT_EQ(*readFile(path, 5), (Data{'1', '2', '3', '4', '5'}));
    EXPECT_EQ(readFile(path, 4).error().code(), EFBIG);
    EXPECT_EQ(*readFile(folder_.writeFile("empty", ""), 0), Data{});
    EXPECT_EQ(readFile(path, 0).error().code(), EFBIG);
}

TEST_F(AFile, OfManyPiecesIsReadWhole) {
    const std::string content(200'000, 'x');
    const std::string path = folder_.writeFile("a", content);
    test::SysFaults faults;
    faults.shorten(sys::Call::Read, 1'000);
    faults.interrupt(sys::Call::Read, 3);
    EXPECT_EQ(readFile(path, content.size())->size(), content.size());
    EXPECT_EQ(readFile(path, content.size() - 1).error().code(), EFBIG);
}

TEST_F(AFile, ThatCannotBeReadSaysWhy) {
    const std::string path = folder_.writeFile("a", "x");
    test::SysFaults faults;
    faults.failNth(sys::Call::Read, 1, EIO);
    EXPECT_EQ(readFile(path, 10).error().code(), EIO);
}

TEST_F(AFile, ThatIsNoRegularOneIsNotEvenOpened) {
    ASSERT_EQ(::mkfifo(folder_.at("pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("pipe", folder_.at("link to pipe"));
    const test::Openings openings(folder_.at("pipe"));
    std::filesystem::create_symlink("/dev/null", folder_.at("link to device"));
    for (const std::string& path : {folder_.at("pipe"), folder_.at("link to pipe"), std::string("/dev/null"),
                                    folder_.at("link to device"), folder_.path()}) {
        const test::SysFaults faults;
        EXPECT_EQ(readFile(path, 10).error().code(), EINVAL) << path;
        EXPECT_EQ(faults.count(sys::Call::Open), 1U) << path;
        EXPECT_EQ(faults.count(sys::Call::Read), 0U) << path;
    }
    EXPECT_FALSE(openings.heard());
    const test::Openings others(folder_.writeFile("a", "x"));
    EXPECT_TRUE(readFile(folder_.at("a"), 10).ok());
    EXPECT_TRUE(others.heard());
}

TEST_F(AFile, ThatChangesPlacesWithALinkToAPipeIsReadOrNotAtAll) {
    ASSERT_EQ(::mkfifo(folder_.at("pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("pipe", folder_.at("other"));
    folder_.writeFile("a", "x");
    const test::Openings openings(folder_.at("pipe"));
    test::whileFlipping(folder_.at("a"), folder_.at("other"), [&] {
        const Result<Data> content = readFile(folder_.at("a"), 10);
        EXPECT_TRUE(content ? *content == Data{'x'} : content.error().code() == EINVAL);
    });
    EXPECT_FALSE(openings.heard());
}

TEST_F(AFile, ThatMayNotBeReadIsAnErrorThatNamesIt) {
    const std::string path = folder_.writeFile("a", "x");
    test::SysFaults faults;
    faults.failNth(sys::Call::Open, 2, EACCES);
    EXPECT_EQ(readFile(path, 10).error().localizedDescription(), "open(\"" + path + "\"): Permission denied");
}

TEST_F(AFile, IsFoundByItsNameOnceMoreOnlyWhereThereIsNoProc) {
    const std::string path = folder_.writeFile("a", "x");
    {
        test::SysFaults faults;
        faults.failNth(sys::Call::Open, 2, ENOENT);
        EXPECT_EQ(readFile(path, 10).error().localizedDescription(),
                  "open(\"" + path + "\"): No such file or directory");
        EXPECT_EQ(faults.count(sys::Call::Open), 2U);
    }
    test::SysFaults faults;
    faults.failNth(sys::Call::Open, 2, ENOENT);
    faults.failAll(sys::Call::Statx, ENOENT);
    EXPECT_EQ(*readFile(path, 10), Data{'x'});
    EXPECT_EQ(faults.count(sys::Call::Open), 3U);
}

TEST(AFileWithoutASize, IsReadWhole) {
    EXPECT_GT(readFile("/proc/self/status", 65'536)->size(), 100U);
}

}  // namespace
}  // namespace ksw::host
