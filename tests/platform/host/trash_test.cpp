#include "platform/host/trash.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include <unistd.h>

#include "platform/host/sys.h"
#include "platform/host/user_database.h"
#include "tests/support/environment.h"
#include "tests/support/sys_faults.h"
#include "tests/support/temp_folder.h"

namespace ksw::host {
namespace {

using test::ScopedVariable;

class TheTrash : public testing::Test {
protected:
    Relationship of(const std::string& path) const {
        const Result<Relationship> relationship = relationshipOfTrash(path);
        EXPECT_TRUE(relationship.ok()) << relationship.error().description();
        return relationship.ok() ? *relationship : Relationship::Other;
    }

    test::TempFolder folder_;
    ScopedVariable home_{"HOME", folder_.makeFolder("home")};
    ScopedVariable data_{"XDG_DATA_HOME", std::nullopt};
};

TEST_F(TheTrash, OfTheHomeContainsWhatLiesInItsFiles) {
    const std::string files = folder_.makeFolder("home/.local/share/Trash/files");
    folder_.writeFile("home/.local/share/Trash/files/Writer.app/Contents/Linux/writer", "x");
    EXPECT_EQ(of(files + "/Writer.app/Contents/Linux/writer"), Relationship::Contains);
    EXPECT_EQ(of(files + "/Writer.app"), Relationship::Contains);
    EXPECT_EQ(of(files), Relationship::Contains);
    EXPECT_EQ(of(files + "/"), Relationship::Contains);
}

TEST_F(TheTrash, DoesNotContainItsOwnRecordsOrNeighbours) {
    EXPECT_EQ(of(folder_.writeFile("home/.local/share/Trash/info/a.trashinfo", "")), Relationship::Other);
    EXPECT_EQ(of(folder_.makeFolder("home/.local/share/Trash")), Relationship::Other);
    EXPECT_EQ(of(folder_.writeFile("home/.local/share/Trash/files2/a", "")), Relationship::Other);
    EXPECT_EQ(of(folder_.writeFile("home/Trash/files/a", "")), Relationship::Other);
    EXPECT_EQ(of(folder_.writeFile("home/files/a", "")), Relationship::Other);
}

TEST_F(TheTrash, MovesWithTheDataFolder) {
    const ScopedVariable data("XDG_DATA_HOME", folder_.at("elsewhere"));
    EXPECT_EQ(of(folder_.writeFile("elsewhere/Trash/files/a", "")), Relationship::Contains);
}

TEST_F(TheTrash, IsWhereALinkHasPutIt) {
    const std::string file = folder_.writeFile("large/thrown away/files/a", "");
    folder_.makeFolder("home/.local/share");
    EXPECT_EQ(of(file), Relationship::Other);
    std::filesystem::create_directory_symlink("../../../large/thrown away", folder_.at("home/.local/share/Trash"));
    EXPECT_EQ(of(file), Relationship::Contains);
    EXPECT_EQ(of(folder_.at("home/.local/share/Trash/files/a")), Relationship::Contains);
    EXPECT_EQ(of(folder_.writeFile("large/thrown away/info/a", "")), Relationship::Other);
    EXPECT_EQ(of(folder_.writeFile("large/files/a", "")), Relationship::Other);
}

TEST_F(TheTrash, KeepsItsFilesWhereALinkHasPutThem) {
    const std::string file = folder_.writeFile("large/thrown away/a", "");
    folder_.makeFolder("home/.local/share/Trash");
    std::filesystem::create_directory_symlink(folder_.at("large/thrown away"),
                                              folder_.at("home/.local/share/Trash/files"));
    EXPECT_EQ(of(file), Relationship::Contains);
    EXPECT_EQ(of(folder_.writeFile("large/thrown away 2/a", "")), Relationship::Other);
}

TEST_F(TheTrash, LiesInAHomeAndInNothingThatLooksLikeOne) {
    folder_.makeFolder("copy/.local/share/Trash/info");
    EXPECT_EQ(of(folder_.writeFile("copy/.local/share/Trash/files/a", "")), Relationship::Other);
    folder_.makeFolder("Trash/info");
    EXPECT_EQ(of(folder_.writeFile("Trash/files/a", "")), Relationship::Other);
}

TEST_F(TheTrash, OfAUserIsKnownToProgramsThatLookElsewhereForTheirOwn) {
    const ScopedVariable data("XDG_DATA_HOME", folder_.at("elsewhere"));
    const std::string file = folder_.writeFile("home/.local/share/Trash/files/a", "");
    // As long as nothing was ever thrown away there, it is a folder like any other.
    EXPECT_EQ(of(file), Relationship::Other);
    folder_.makeFolder("home/.local/share/Trash/info");
    EXPECT_EQ(of(file), Relationship::Contains);
}

TEST_F(TheTrash, OfAnotherUserLiesInTheHomeThatTheDatabaseNames) {
    constexpr Uid kOther = 65'534;
    const std::optional<UserEntry> other = userEntry(kOther);
    ASSERT_TRUE(other.has_value());
    const ScopedVariable root("KESTRELWOOD_ROOT", folder_.path());
    const ScopedVariable none("HOME", std::nullopt);
    const std::string trash = other->home.substr(1) + "/.local/share/Trash";
    const std::string file = folder_.writeFile(trash + "/files/a", "");
    folder_.makeFolder(trash + "/info");
    // Only root can make another's; what belongs to somebody else is not his trash.
    EXPECT_EQ(of(file), ::geteuid() == kOther ? Relationship::Contains : Relationship::Other);
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(folder_.at(trash).c_str(), kOther, kOther), 0);
        EXPECT_EQ(of(file), Relationship::Contains);
    }
}

TEST_F(TheTrash, IsFoundBehindLinks) {
    folder_.writeFile("home/.local/share/Trash/files/a", "");
    std::filesystem::create_symlink("home/.local/share/Trash/files/a", folder_.at("into"));
    std::filesystem::create_directory_symlink("home/.local/share", folder_.at("share"));
    EXPECT_EQ(of(folder_.at("into")), Relationship::Contains);
    EXPECT_EQ(of(folder_.at("share/Trash/files/../files/a")), Relationship::Contains);
}

TEST_F(TheTrash, DoesNotContainWhatALinkInItPointsTo) {
    const std::string files = folder_.makeFolder("home/.local/share/Trash/files");
    std::filesystem::create_symlink(folder_.writeFile("kept", ""), files + "/link");
    EXPECT_EQ(of(files + "/link"), Relationship::Other);
}

TEST_F(TheTrash, IsSearchedBehindAFolderThatOnlyLooksLikeIt) {
    const ScopedVariable home("HOME", folder_.makeFolder("Trash/files/home"));
    const ScopedVariable data("XDG_DATA_HOME", folder_.at("elsewhere"));
    folder_.makeFolder("Trash/info");
    folder_.makeFolder("Trash/files/home/.local/share/Trash/info");
    EXPECT_EQ(of(folder_.writeFile("Trash/files/home/.local/share/Trash/files/a", "")), Relationship::Contains);
}

TEST_F(TheTrash, OfAVolumeStandsAtItsTopOnly) {
    EXPECT_EQ(of(folder_.writeFile(".Trash-501/files/a", "")), Relationship::Other);
    EXPECT_EQ(of(folder_.writeFile(".Trash/501/files/a", "")), Relationship::Other);
}

TEST(ATrashsPath, IsToldByItsNames) {
    for (const char* path : {"/home/me/.local/share/Trash/files/a", "/a/files", "/files/a", "/a/files2/files"}) {
        EXPECT_TRUE(mayLeadIntoTrash(path)) << path;
    }
    for (const char* path : {"", "/", "/a/files2", "/a/myfiles/b", "/a/Trash/info/a", "files/a"}) {
        EXPECT_FALSE(mayLeadIntoTrash(path)) << path;
    }
}

/// The top of a volume that everyone may write to.
class AVolume : public TheTrash {
protected:
    AVolume() { std::filesystem::create_directories(trash() + "/files/sub"); }
    ~AVolume() override { std::filesystem::remove_all(trash()); }

    static std::string trash() { return "/dev/shm/.Trash-4" + std::to_string(::getpid()); }
};

TEST_F(AVolume, HasATrashForEachUser) {
    EXPECT_EQ(of(trash() + "/files/sub"), Relationship::Contains);
    EXPECT_EQ(of(trash() + "/files"), Relationship::Contains);
    EXPECT_EQ(of(trash()), Relationship::Other);
}

TEST_F(TheTrash, OfTheUserLiesInItsHomeAndAtTheTopOfTheVolume) {
    const std::string uid = std::to_string(::geteuid());
    const std::string home = folder_.at("home/.local/share/Trash/files");
    EXPECT_EQ(ownTrashFolders("/dev/shm"),
              (std::vector{home, "/dev/shm/.Trash/" + uid + "/files", "/dev/shm/.Trash-" + uid + "/files"}));
    EXPECT_EQ(ownTrashFolders("/"), (std::vector{home, "/.Trash/" + uid + "/files", "/.Trash-" + uid + "/files"}));
    const std::optional<UserEntry> entry = userEntry(::geteuid());
    const ScopedVariable none("HOME", std::nullopt);
    const bool hasHome = entry && entry->home.starts_with('/');
    EXPECT_EQ(ownTrashFolders(folder_.at("none")),
              hasHome ? std::vector{entry->home + "/.local/share/Trash/files"} : std::vector<std::string>{});
}

TEST_F(TheTrash, QueryAboutAMissingFileIsAnErrorThatNamesIt) {
    const auto answer = relationshipOfTrash(folder_.at("none"));
    ASSERT_FALSE(answer.ok());
    EXPECT_EQ(answer.error().domain(), kPosixErrorDomain);
    EXPECT_EQ(answer.error().code(), ENOENT);
    EXPECT_EQ(answer.error().localizedDescription(),
              "open(\"" + folder_.at("none") + "\"): No such file or directory");
}

TEST_F(TheTrash, QueryAboutAnOrdinaryFileOpensItAndTheTrash) {
    const std::string path = folder_.writeFile("a", "");
    const test::SysFaults faults;
    EXPECT_EQ(of(path), Relationship::Other);
    EXPECT_EQ(faults.count(sys::Call::Open), 2U);
    EXPECT_EQ(faults.count(sys::Call::ReadLink), 0U);
    EXPECT_EQ(faults.count(sys::Call::Statx), 0U);
}

TEST_F(TheTrash, QueryThatTheFileSystemRefusesIsAnError) {
    const std::string path = folder_.writeFile("a", "");
    test::SysFaults faults;
    faults.failNth(sys::Call::Open, 1, EACCES);
    EXPECT_EQ(relationshipOfTrash(path).error().code(), EACCES);
}

TEST_F(TheTrash, QueryOfALinkThatTheFileSystemRefusesIsAnError) {
    std::filesystem::create_symlink(folder_.writeFile("a", ""), folder_.at("link"));
    test::SysFaults faults;
    faults.failNth(sys::Call::ReadLink, 1, ENOMEM);
    EXPECT_EQ(relationshipOfTrash(folder_.at("link")).error().code(), ENOMEM);
}

}  // namespace
}  // namespace ksw::host
