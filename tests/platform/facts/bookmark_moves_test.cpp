// Bookmarks of files that were moved, replaced and removed since.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include <sys/stat.h>

#include "platform/base/limits.h"
#include "platform/facts/moved_file.h"
#include "platform/host/sys.h"
#include "tests/platform/facts/bookmark_support.h"
#include "tests/support/in_child.h"
#include "tests/support/sys_faults.h"

namespace ksw {
namespace {

using host::sys::Call;

class ABookmarkedFile : public test::BookmarkTest {
protected:
    void move(const std::string& from, const std::string& to) const {
        std::filesystem::create_directories(std::filesystem::path(folder_.at(to)).parent_path());
        std::filesystem::rename(folder_.at(from), folder_.at(to));
    }
};

TEST_F(ABookmarkedFile, ThatDidNotMoveIsAtItsPath) {
    const std::string path = folder_.writeFile("apps/a", "");
    EXPECT_EQ(resolve(make(path)), at(path));
    EXPECT_EQ(resolve(make(path), 0), at(path));
}

TEST_F(ABookmarkedFile, ThatIsAFolderHasAUrlThatEndsInASlash) {
    const std::string path = folder_.makeFolder("Writer.app");
    EXPECT_EQ(__ksw_resolveBookmark(make(path)), URL::fileURL(path, PathKind::Directory));
}

TEST_F(ABookmarkedFile, ThatWasWrittenToIsTheSame) {
    const Data bookmark = make(folder_.writeFile("a", "1"));
    EXPECT_EQ(resolve(bookmark), at(folder_.writeFile("a", "2")));
}

TEST_F(ABookmarkedFile, ThatWasReplacedInPlaceIsTheNewOneAndStale) {
    const std::string path = folder_.writeFile("Writer.app/old", "");
    const Data bookmark = make(folder_.at("Writer.app"));
    move("Writer.app", "old/Writer.app");
    folder_.writeFile("Writer.app/new", "");
    EXPECT_EQ(resolve(bookmark), staleAt(folder_.at("Writer.app")));
}

TEST_F(ABookmarkedFile, ThatWasRemovedIsNotFound) {
    const std::string path = folder_.writeFile("a", "");
    const Data bookmark = make(path);
    std::filesystem::remove(path);
    EXPECT_EQ(resolve(bookmark), notFound(path));
}

TEST_F(ABookmarkedFile, OfABaseThatIsAFileNowIsNotFound) {
    const std::string path = folder_.writeFile("sub/a", "");
    const Data bookmark = make(path);
    std::filesystem::remove_all(folder_.at("sub"));
    folder_.writeFile("sub", "");
    EXPECT_EQ(resolve(bookmark), notFound(path));
}

/// Found by anybody, since the kernel does not say where the file is.
class ASearchedFile : public ABookmarkedFile {
protected:
    ASearchedFile() { faults_.failAll(Call::FileHandle, EPERM); }

    test::SysFaults faults_;
};

TEST_F(ASearchedFile, IsFoundUnderAnotherNameInItsFolder) {
    const Data bookmark =
        make(folder_.writeFile("apps/Writer.app/a", "").substr(0, folder_.at("apps/Writer.app").size()));
    move("apps/Writer.app", "apps/Writer 2.app");
    EXPECT_EQ(resolve(bookmark), staleAt(folder_.at("apps/Writer 2.app")));
}

TEST_F(ASearchedFile, IsFoundInASiblingOfItsFolder) {
    const Data bookmark = make(folder_.writeFile("apps/a", ""));
    folder_.writeFile("other/x", "");
    move("apps/a", "more/b");
    EXPECT_EQ(resolve(bookmark), staleAt(folder_.at("more/b")));
}

TEST_F(ASearchedFile, IsFoundInTheFolderAbove) {
    const Data bookmark = make(folder_.writeFile("apps/a", ""));
    move("apps/a", "a");
    EXPECT_EQ(resolve(bookmark), staleAt(folder_.at("a")));
}

TEST_F(ASearchedFile, IsFoundWhenItsFolderWasRenamed) {
    const Data bookmark = make(folder_.writeFile("apps/a", ""));
    move("apps", "programs");
    EXPECT_EQ(resolve(bookmark), staleAt(folder_.at("programs/a")));
}

TEST_F(ASearchedFile, IsNotFoundDeeperOrFurtherAway) {
    const Data bookmark = make(folder_.writeFile("one/apps/a", ""));
    move("one/apps/a", "one/other/deep/a");
    EXPECT_EQ(resolve(bookmark), notFound(folder_.at("one/apps/a")));
    move("one/other/deep/a", "two/a");
    EXPECT_EQ(resolve(bookmark), notFound(folder_.at("one/apps/a")));
}

TEST_F(ASearchedFile, IsFoundInTheTrashUnderItsNameOrAnother) {
    for (const std::string name : {"a", "a.2"}) {
        const std::string path = folder_.writeFile("one/apps/a", "");
        const Data bookmark = make(path);
        move("one/apps/a", "home/.local/share/Trash/files/" + name);
        const Answer inTrash{std::nullopt, true,
                             Error("KSWErrorDomain", -99, "bookmark resolved to URL in the trash")};
        EXPECT_EQ(resolve(bookmark), inTrash) << name;
    }
}

TEST_F(ASearchedFile, IsFoundInATrashThatALinkHasPutElsewhere) {
    folder_.makeFolder("large/thrown away/files");
    folder_.makeFolder("home/.local/share");
    std::filesystem::create_directory_symlink(folder_.at("large/thrown away"),
                                              folder_.at("home/.local/share/Trash"));
    const Data bookmark = make(folder_.writeFile("one/apps/a", ""));
    move("one/apps/a", "large/thrown away/files/a");
    EXPECT_EQ(resolve(bookmark).error->code(), -99);
    EXPECT_EQ(resolve(make(folder_.at("large/thrown away/files/a"))).error->code(), -99);
}

TEST_F(ASearchedFile, IsNotTakenForALinkToIt) {
    const Data bookmark = make(folder_.writeFile("one/apps/a", ""));
    move("one/apps/a", "two/far/a");
    std::filesystem::create_symlink(folder_.at("two/far/a"), folder_.at("one/apps/link"));
    std::filesystem::create_directory_symlink(folder_.at("two/far"), folder_.at("one/far"));
    EXPECT_EQ(resolve(bookmark), notFound(folder_.at("one/apps/a")));
}

TEST_F(ASearchedFile, OfAnotherBirthIsAnotherFile) {
    const std::string path = folder_.writeFile("apps/a", "");
    const Data bookmark =
        changed(make(path), [](facts::BookmarkContent& content) { ++content.file->identifier.birthSeconds; });
    EXPECT_EQ(resolve(bookmark), staleAt(path));
    move("apps/a", "apps/b");
    EXPECT_EQ(resolve(bookmark), notFound(path));
}

/// In its folder and the one above there are two entries, in the sibling the file and nothing else.
class ASearch : public ASearchedFile {
protected:
    Data moveAmong(std::size_t others) const {
        for (std::size_t number = 0; number < others; ++number) {
            addOther(number);
        }
        const Data bookmark = make(folder_.writeFile("one/apps/a", ""));
        move("one/apps/a", "one/other/a");
        return bookmark;
    }
    /// All are one file, which is quicker made than many.
    void addOther(std::size_t number) const {
        const std::string name = "one/apps/" + std::to_string(number);
        if (number == 0) {
            folder_.writeFile(name, "");
        } else {
            std::filesystem::create_hard_link(folder_.at("one/apps/0"), folder_.at(name));
        }
    }
};

TEST_F(ASearch, ReadsAsManyEntriesAsItMayAndNotOneMore) {
    constexpr std::size_t kOthersMax = limits::kBookmarkSearchEntriesMax - 3;
    const Data bookmark = moveAmong(kOthersMax);
    EXPECT_EQ(resolve(bookmark), staleAt(folder_.at("one/other/a")));
    addOther(kOthersMax);
    const test::SysFaults faults;
    EXPECT_EQ(resolve(bookmark), notFound(folder_.at("one/apps/a")));
    EXPECT_LT(faults.count(Call::Statx), limits::kBookmarkSearchEntriesMax + 50);
    EXPECT_LT(faults.count(Call::Open), 100U);
}

TEST_F(ASearch, PassesOverFoldersThatAreClosedToIt) {
    const Data bookmark = make(folder_.writeFile("one/apps/a", ""));
    move("one/apps/a", "one/other/a");
    const auto changeClosedFolders = [&](mode_t mode) {
        for (int number = 0; number < 5; ++number) {
            ASSERT_EQ(::chmod(folder_.makeFolder("one/closed" + std::to_string(number)).c_str(), mode), 0);
        }
    };
    changeClosedFolders(0);
    ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
    test::asOrdinaryUser([&] { EXPECT_EQ(resolve(bookmark), staleAt(folder_.at("one/other/a"))); });
    changeClosedFolders(0700);  // or only root could remove them
}

TEST_F(ABookmarkedFile, ThatCannotBeLookedAtIsAnErrorThatSaysWhy) {
    const Data bookmark = make(folder_.writeFile("a", ""));
    test::SysFaults faults;
    faults.failAll(Call::Statx, EIO);
    EXPECT_EQ(resolve(bookmark).error->domain(), kPosixErrorDomain);
    EXPECT_EQ(resolve(bookmark).error->code(), EIO);
}

TEST_F(ABookmarkedFile, ThatMovedFarAwayIsFoundByWhoMayPassOverPermissions) {
    const std::string path = folder_.writeFile("one/apps/a", "");
    const Data bookmark = make(path);
    move("one/apps/a", "two/far/away/a");
    const facts::BookmarkContent content = *facts::readBookmark(bookmark);
    const auto folder = host::sys::open(folder_.path(), O_RDONLY | O_DIRECTORY);
    const bool mayPass = host::sys::openByHandle(folder->get(), content.handleType, content.handle).ok();
    EXPECT_EQ(resolve(bookmark), mayPass ? staleAt(folder_.at("two/far/away/a")) : notFound(path));
}

TEST_F(ABookmarkedFile, ThatIsRemovedButOpenIsNotFound) {
    const std::string path = folder_.writeFile("one/apps/a", "");
    const Data bookmark = make(path);
    const auto open = host::sys::open(path, O_RDONLY);
    std::filesystem::remove(path);
    EXPECT_EQ(resolve(bookmark), notFound(path));
}

TEST_F(ABookmarkedFile, OnAVolumeThatHasAnotherDeviceNumberNowIsTheSame) {
    const std::string path = folder_.writeFile("apps/a", "");
    const Data bookmark = make(path);
    ASSERT_NE(facts::readBookmark(bookmark)->file->volume, 0U);
    const Data before =
        changed(bookmark, [](facts::BookmarkContent& content) { ++content.file->identifier.device; });
    EXPECT_EQ(resolve(before), at(path));
    EXPECT_TRUE(__ksw_matchBookmark(before, bookmark, 0x8000));
    move("apps/a", "apps/b");
    EXPECT_EQ(resolve(before), staleAt(folder_.at("apps/b")));
}

TEST_F(ABookmarkedFile, OnAnotherVolumeIsNotFoundHere) {
    const std::string path = folder_.writeFile("apps/a", "");
    const Data elsewhere = changed(make(path), [](facts::BookmarkContent& content) {
        ++content.file->identifier.device;
        ++content.file->volume;
    });
    EXPECT_EQ(resolve(elsewhere), staleAt(path));
    EXPECT_FALSE(__ksw_matchBookmark(elsewhere, make(path), 0x8000));
    move("apps/a", "apps/b");
    const test::SysFaults faults;
    EXPECT_EQ(resolve(elsewhere), notFound(path));
    EXPECT_LT(faults.count(Call::Statx), 20U);  // no folder was searched
}

TEST_F(ABookmarkedFile, OnAVolumeIsFoundAsLongAsThatIsMounted) {
    test::withOwnMounts([&] {
        const std::string volume = folder_.makeFolder("volume");
        test::mountNew(volume);
        const std::string path = folder_.writeFile("volume/apps/a", "");
        const Data bookmark = make(path);
        EXPECT_EQ(resolve(bookmark), at(path));
        move("volume/apps/a", "volume/other/b");
        EXPECT_EQ(resolve(bookmark), staleAt(folder_.at("volume/other/b")));
        test::unmount(volume);
        EXPECT_EQ(resolve(bookmark), notFound(path));
        test::mountNew(volume);
        EXPECT_EQ(resolve(bookmark), notFound(path));
    });
}

TEST_F(ABookmarkedFile, InTheTrashOfItsVolumeDoesNotResolve) {
    test::withOwnMounts([&] {
        test::mountNew(folder_.makeFolder("volume"));
        for (const std::string& trash :
             {".Trash-" + std::to_string(::geteuid()), ".Trash/" + std::to_string(::geteuid())}) {
            const Data bookmark = make(folder_.writeFile("volume/one/apps/a", ""));
            move("volume/one/apps/a", "volume/" + trash + "/files/a.2");
            EXPECT_EQ(resolve(bookmark).error->code(), -99) << trash;
        }
    });
}

TEST_F(ABookmarkedFile, SeenThroughTwoMountsIsOneFile) {
    test::withOwnMounts([&] {
        folder_.writeFile("real/a", "");
        test::bindMount(folder_.at("real"), folder_.makeFolder("shown"));
        const Data there = make(folder_.at("shown/a"));
        EXPECT_TRUE(__ksw_matchBookmark(there, make(folder_.at("real/a")), 0x8000));
        EXPECT_EQ(resolve(there), at(folder_.at("shown/a")));
        EXPECT_EQ(__ksw_resourcePropertyForKey(make(folder_.at("shown")), kResourceKeyIsVolume), Value(true));
    });
}

}  // namespace
}  // namespace ksw
