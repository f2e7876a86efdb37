// Bookmarks of files behind odd names, links and closed doors, and of places that change meanwhile.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>

#include <sys/stat.h>

#include <kestrelwood/KSWErrors.h>

#include "platform/base/utf8.h"
#include "platform/facts/bookmark.h"
#include "platform/host/quiet_lookup.h"
#include "tests/platform/facts/bookmark_support.h"
#include "tests/support/automounter.h"
#include "tests/support/flipping.h"
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
    AFlippingPath() {
        folder_.writeFile("tree/flip/a", "");
        folder_.writeFile("outside/a", "");
        std::filesystem::create_directory_symlink(folder_.at("outside"), folder_.at("tree/flop"));
    }

    void flip() const { test::flip(folder_.at("tree/flip"), folder_.at("tree/flop")); }
    void whileFlipping(const std::function<void()>& look) const {
        test::whileFlipping(folder_.at("tree/flip"), folder_.at("tree/flop"), look);
    }
};

TEST_F(AFlippingPath, NeverHasTheFileOutsideTakenForTheBookmarks) {
    const std::string path = folder_.at("tree/flip/a");
    const Data bookmark = make(path);
    const host::FileIdentifier inside = host::fileFacts(path)->identifier;
    flip();
    EXPECT_EQ(resolve(bookmark), staleAt(path));
    flip();
    EXPECT_EQ(resolve(bookmark), at(path));
    whileFlipping([&] {
        const Result<facts::ResolvedBookmark> resolved = facts::resolveBookmark(bookmark, 0x300);
        ASSERT_TRUE(resolved.ok());
        EXPECT_EQ(resolved->path, path);
        // Only a link leads to another file than the one that was bookmarked.
        EXPECT_FALSE(resolved->isWithoutLinks && resolved->isStale);
        const Result<host::Sighting> seen = host::lookQuietly(path);
        ASSERT_TRUE(seen.ok());
        EXPECT_FALSE(seen->isWithoutLinks && seen->facts.identifier != inside);
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

TEST_F(AFlippingPath, LeadsIntoTheTrashOrOutOfItAndNowhereElse) {
    const std::string files = folder_.makeFolder("home/.local/share/Trash/files");
    std::filesystem::rename(folder_.at("tree/flip"), files + "/flip");
    std::filesystem::rename(folder_.at("tree/flop"), files + "/flop");
    const std::string path = files + "/flip/a";
    const auto isInTrash = [&] { return __ksw_isInTrash(URL::fileURL(path)); };
    const Data bookmark = make(path);
    const Answer thrownAway{std::nullopt, false, KSWErrorWithCode(KSWErrorBookmarkInTrash)};
    EXPECT_TRUE(isInTrash());
    EXPECT_EQ(resolve(bookmark), thrownAway);
    test::flip(files + "/flip", files + "/flop");
    EXPECT_FALSE(isInTrash());
    EXPECT_EQ(resolve(bookmark), staleAt(path));
    test::flip(files + "/flip", files + "/flop");
    test::whileFlipping(files + "/flip", files + "/flop", [&] {
        isInTrash();
        const Answer answer = resolve(bookmark);
        EXPECT_EQ(answer.path.value_or(path), path);
        EXPECT_EQ(answer.error.has_value(), !answer.path);
        EXPECT_EQ(answer.error ? answer.error->code() : -99, -99);
        // Beside the trash there is nothing to fall into it.
        EXPECT_FALSE(__ksw_isInTrash(URL::fileURL(folder_.at("outside/a"))));
    });
    EXPECT_TRUE(isInTrash());
}

using AnUnmountedFolder = ABookmarkedPath;
using Map = test::SleepingAutomounter::Map;

TEST_F(AnUnmountedFolder, IsNotMountedByResolving) {
    test::withOwnMounts([&] {
        const std::string place = folder_.makeFolder("place");
        test::mountNew(place);
        const Data inside = make(folder_.writeFile("place/a", ""));
        const Data itself = make(place);
        test::unmount(place);
        std::filesystem::create_directory_symlink("place", folder_.at("link"));
        const test::SleepingAutomounter automounter;
        if (!automounter.takeOver(place, Map::Direct)) {
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

TEST_F(AnUnmountedFolder, BesideAMountedOneHidesNothingInThat) {
    test::withOwnMounts([&] {
        const test::SleepingAutomounter automounter;
        if (!automounter.takeOver(folder_.makeFolder("users"), Map::Indirect)) {
            return;
        }
        automounter.addMounted(folder_.at("users/me"));
        automounter.addUnmounted(folder_.at("users/you"));
        const Data bookmark = make(folder_.writeFile("users/me/apps/a", ""));
        EXPECT_EQ(resolve(bookmark), at(folder_.at("users/me/apps/a")));
        std::filesystem::rename(folder_.at("users/me/apps/a"), folder_.at("users/me/apps/b"));
        EXPECT_EQ(resolve(bookmark), staleAt(folder_.at("users/me/apps/b")));
        for (const std::string name : {"users/you/apps/a", "users/unknown/a", "users/you", "users"}) {
            const Data elsewhere =
                changed(bookmark, [path = folder_.at(name)](auto& content) { content.path = path; });
            EXPECT_EQ(resolve(elsewhere).path, std::nullopt) << name;
        }
    });
}

}  // namespace
}  // namespace ksw
