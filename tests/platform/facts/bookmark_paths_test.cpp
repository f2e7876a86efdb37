// Bookmarks of files behind odd names, links and closed doors, and of places that change meanwhile.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <thread>

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/base/utf8.h"
#include "tests/platform/facts/bookmark_support.h"
#include "tests/support/in_child.h"

namespace ksw {
namespace {

class ABookmarkedPath : public test::BookmarkTest {
protected:
    /// The bookmark of a file of this name resolves, follows the file to another name, and has names to show.
    void expectFound(const std::string& name) const {
        const std::string path = folder_.writeFile("apps/" + name, "");
        const Data bookmark = make(path);
        EXPECT_EQ(resolve(bookmark), at(path));
        EXPECT_TRUE(isUtf8(__ksw_displayName(bookmark).value_or("\xFF"))) << name;
        EXPECT_EQ(__ksw_resourcePropertyForKey(bookmark, kResourceKeyPath), Value(path));
        std::filesystem::rename(path, folder_.at("apps/moved"));
        EXPECT_EQ(resolve(bookmark), staleAt(folder_.at("apps/moved")));
        std::filesystem::rename(folder_.at("apps/moved"), path);
        EXPECT_EQ(resolve(make(folder_.at("apps"))), at(folder_.at("apps")));
        std::filesystem::remove(path);
    }
};

TEST_F(ABookmarkedPath, HoldsAnyByteOfAName) {
    const std::string names[] = {" ",        "a b c", "100%",    "%41",     "%",    "%00",          "line\nline",
                                 "\x01\x7F", "a?b#c", "a:b;c=d", "-x",      "...",  "\xFF\xFE.app", "caf\xC3\xA9",
                                 "caf\xE9",  "\\\"'", "~",       "*[a]{b}", "a\tb", ".hidden",      "\xED\xA0\x80"};
    for (const std::string& name : names) {
        expectFound(name);
    }
}

TEST_F(ABookmarkedPath, HoldsTheLongestName) {
    expectFound(std::string(255, 'n'));
    EXPECT_EQ(__ksw_bookmarkDataWithURL(URL::fileURL(folder_.at(std::string(256, 'n')))), std::nullopt);
}

TEST_F(ABookmarkedPath, MayBeFortyFoldersDeep) {
    std::string deep = "apps";
    for (int level = 0; level < 40; ++level) {
        deep += "/level " + std::to_string(level);
    }
    const std::string path = folder_.writeFile(deep + "/a", "");
    const Data bookmark = make(path);
    EXPECT_EQ(resolve(bookmark), at(path));
    std::filesystem::rename(path, folder_.at(deep + "/b"));
    EXPECT_EQ(resolve(bookmark), staleAt(folder_.at(deep + "/b")));
    std::filesystem::remove_all(folder_.at("apps/level 0/level 1"));
    EXPECT_EQ(resolve(bookmark), notFound(path));
}

TEST_F(ABookmarkedPath, MayLeadThroughLinksInEveryPosition) {
    folder_.writeFile("real/sub/a", "");
    std::filesystem::create_directory_symlink(folder_.at("real"), folder_.at("first"));
    std::filesystem::create_directory_symlink("sub", folder_.at("real/middle"));
    std::filesystem::create_symlink("../../real/sub/a", folder_.at("real/sub/last"));
    std::filesystem::create_directory_symlink("first/./middle/../middle", folder_.at("chain"));
    for (const std::string name :
         {"first/sub/a", "real/middle/a", "real/sub/last", "first/middle/last", "chain/a"}) {
        const Data bookmark = make(folder_.at(name));
        EXPECT_EQ(resolve(bookmark), at(folder_.at(name)));
        EXPECT_TRUE(__ksw_matchBookmark(bookmark, make(folder_.at("real/sub/a")), 0x8000));
    }
}

TEST_F(ABookmarkedPath, WhoseLinkPointsElsewhereIsStale) {
    folder_.writeFile("one/a", "");
    folder_.writeFile("two/a", "");
    std::filesystem::create_directory_symlink("one", folder_.at("link"));
    const Data bookmark = make(folder_.at("link/a"));
    std::filesystem::remove(folder_.at("link"));
    std::filesystem::create_directory_symlink("two", folder_.at("link"));
    EXPECT_EQ(resolve(bookmark), staleAt(folder_.at("link/a")));
    std::filesystem::remove(folder_.at("link"));
    std::filesystem::create_directory_symlink("none", folder_.at("link"));
    EXPECT_EQ(resolve(bookmark), staleAt(folder_.at("one/a")));
}

TEST_F(ABookmarkedPath, OfLinksInACircleIsNotFound) {
    const Data bookmark = make(folder_.writeFile("one/a", ""));
    std::filesystem::remove_all(folder_.at("one"));
    std::filesystem::create_symlink("two", folder_.at("one"));
    std::filesystem::create_symlink("one", folder_.at("two"));
    EXPECT_EQ(resolve(bookmark), notFound(folder_.at("one/a")));
    EXPECT_EQ(__ksw_bookmarkDataWithURL(URL::fileURL(folder_.at("one/a"))), std::nullopt);
}

TEST_F(ABookmarkedPath, BehindAClosedFolderIsAnErrorAndNothingIsSearched) {
    const std::string path = folder_.writeFile("open/closed/secret", "");
    const Data bookmark = make(path);
    const Data ofFolder = make(folder_.at("open"));
    ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
    ASSERT_EQ(::chmod(folder_.at("open/closed").c_str(), 0), 0);
    test::asOrdinaryUser([&] {
        const Answer answer = resolve(bookmark);
        EXPECT_EQ(answer.path, std::nullopt);
        EXPECT_EQ(answer.error->code(), EACCES);
        EXPECT_EQ(resolve(ofFolder), at(folder_.at("open")));
        // A forged one: the secret's identifier and handle under another path.
        const Data forged = changed(
            bookmark, [&, elsewhere = folder_.at("open/none")](auto& content) { content.path = elsewhere; });
        EXPECT_EQ(resolve(forged), notFound(folder_.at("open/none")));
    });
    ASSERT_EQ(::chmod(folder_.at("open/closed").c_str(), 0700), 0);
}

/// A folder "flip" and a link "flop" to another folder that change places all the time.
class AFlippingPath : public ABookmarkedPath {
protected:
    static constexpr int kFlips = 10'000;

    AFlippingPath() {
        folder_.writeFile("tree/flip/a", "");
        folder_.writeFile("outside/a", "");
        std::filesystem::create_directory_symlink(folder_.at("outside"), folder_.at("tree/flop"));
    }

    /// Calls `look` again and again until all flips are done.
    template <class Look>
    void whileFlipping(Look look) const {
        std::atomic<bool> isDone = false;
        const std::string one = folder_.at("tree/flip");
        const std::string other = folder_.at("tree/flop");
        std::thread flipper([&] {
            for (int flip = 0; flip < kFlips; ++flip) {
                EXPECT_EQ(::renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE), 0);
            }
            isDone = true;
        });
        while (!isDone) {
            look();
        }
        flipper.join();
    }
};

TEST_F(AFlippingPath, NeverLeadsABookmarkOutside) {
    const Data bookmark = make(folder_.at("tree/flip/a"));
    whileFlipping([&] {
        const Answer answer = resolve(bookmark);
        EXPECT_EQ(answer.path, folder_.at("tree/flip/a"));
    });
}

TEST_F(AFlippingPath, NeverLeadsASearchOutside) {
    const Data bookmark = make(folder_.writeFile("tree/flip/gone", ""));
    std::filesystem::rename(folder_.at("tree/flip/gone"), folder_.at("tree/flip/found"));
    folder_.writeFile("outside/found", "");
    whileFlipping([&] {
        const Answer answer = resolve(bookmark);
        EXPECT_TRUE(!answer.path || *answer.path == folder_.at("tree/flip/found") ||
                    *answer.path == folder_.at("tree/flop/found"))
            << *answer.path;
    });
    EXPECT_EQ(resolve(bookmark), staleAt(folder_.at("tree/flip/found")));
}

/// An automounter that never answers: whoever makes it mount something waits for ever.
class SleepingAutomounter {
public:
    /// The automounter's own group of processes passes; another one than this is named for it.
    SleepingAutomounter() : process_(::fork()) {
        if (process_ == 0) {
            ::setpgid(0, 0);
            ::pause();
            ::_exit(0);
        }
        ::setpgid(process_, process_);
    }
    ~SleepingAutomounter() {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }
    SleepingAutomounter(const SleepingAutomounter&) = delete;
    SleepingAutomounter& operator=(const SleepingAutomounter&) = delete;

    /// Only root can.
    bool mountAt(const std::string& folder) const {
        std::array<int, 2> ends{};
        EXPECT_EQ(::pipe(ends.data()), 0);
        const std::string options =
            "fd=" + std::to_string(ends[1]) + ",pgrp=" + std::to_string(process_) + ",minproto=5,maxproto=5,direct";
        return ::mount("sleeping", folder.c_str(), "autofs", 0, options.c_str()) == 0;
    }

private:
    pid_t process_;
};

using AnUnmountedFolder = ABookmarkedPath;

TEST_F(AnUnmountedFolder, IsNotMountedByResolving) {
    test::withOwnMounts([&] {
        const std::string place = folder_.makeFolder("place");
        test::mountNew(place);
        const Data inside = make(folder_.writeFile("place/a", ""));
        const Data itself = make(place);
        test::unmount(place);
        std::filesystem::create_directory_symlink("place", folder_.at("link"));
        const SleepingAutomounter automounter;
        if (!automounter.mountAt(place)) {
            return;
        }
        EXPECT_EQ(resolve(inside), notFound(place + "/a"));
        EXPECT_EQ(resolve(itself), notFound(place));
        const Data throughLink =
            changed(inside, [&, path = folder_.at("link/a")](auto& content) { content.path = path; });
        EXPECT_EQ(resolve(throughLink), notFound(folder_.at("link/a")));
        const Data beside = make(folder_.writeFile("one/a", ""));
        std::filesystem::remove(folder_.at("one/a"));
        EXPECT_EQ(resolve(beside), notFound(folder_.at("one/a")));
    });
}

}  // namespace
}  // namespace ksw
