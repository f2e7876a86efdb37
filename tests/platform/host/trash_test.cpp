#include "platform/host/trash.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include <unistd.h>

#include "platform/host/sys.h"
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

TEST_F(TheTrash, OfAnotherUsersHomeCounts) {
    EXPECT_EQ(of(folder_.writeFile("other/.local/share/Trash/files/a", "")), Relationship::Contains);
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
    folder_.makeFolder("Trash/files/home/.local/share/Trash/files");
    EXPECT_EQ(of(folder_.writeFile("Trash/files/home/.local/share/Trash/files/a", "")), Relationship::Contains);
}

TEST_F(TheTrash, OfAVolumeStandsAtItsTopOnly) {
    EXPECT_EQ(of(folder_.writeFile(".Trash-501/files/a", "")), Relationship::Other);
    EXPECT_EQ(of(folder_.writeFile(".Trash/501/files/a", "")), Relationship::Other);
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
    const ScopedVariable none("HOME", std::nullopt);
    EXPECT_EQ(ownTrashFolders(folder_.at("none")), std::vector<std::string>{});
}

TEST_F(TheTrash, QueryAboutAMissingFileIsAnErrorThatNamesIt) {
    const auto answer = relationshipOfTrash(folder_.at("none"));
    ASSERT_FALSE(answer.ok());
    EXPECT_EQ(answer.error().domain(), kPosixErrorDomain);
    EXPECT_EQ(answer.error().code(), ENOENT);
    EXPECT_EQ(answer.error().localizedDescription(),
              "open(\"" + folder_.at("none") + "\"): No such file or directory");
}

TEST_F(TheTrash, QueryAboutAnOrdinaryFileOpensItAndNoMore) {
    const std::string path = folder_.writeFile("a", "");
    const test::SysFaults faults;
    EXPECT_EQ(of(path), Relationship::Other);
    EXPECT_EQ(faults.count(sys::Call::Open), 1U);
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
