// Files in folders with odd names and behind links: what their items are called, where they are found again, and
// what they lie in.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>

#include <kestrelwood/KSWAdditions.h>
#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWItem.h>

#include "platform/host/file_facts.h"
#include "tests/support/environment.h"
#include "tests/support/flipping.h"
#include "tests/support/temp_folder.h"

namespace {

using ksw::PathKind;
using ksw::URL;
using ksw::test::ScopedVariable;
namespace fs = std::filesystem;

/// A folder below another one, and the same without links.
struct OddPlace {
    std::string folder;
    std::string canonical;
    bool isLink = false;  ///< The last component of the folder is a link.
};

std::string fortyLevels() {
    std::string path = "level";
    for (int level = 1; level < 40; ++level) {
        path += "/level " + std::to_string(level);
    }
    return path;
}

/// Blanks, percent signs, line ends, bytes that are not UTF-8, the longest name, the deepest folder; then links as
/// the first, a middle, the last component, one behind the other, and with ".." behind one.
std::vector<OddPlace> oddPlaces() {
    std::vector<OddPlace> places;
    for (const std::string& name : {std::string(" "),
                                    std::string("a b c"),
                                    std::string("100%"),
                                    std::string("%41"),
                                    std::string("%00"),
                                    std::string("line\nline\r"),
                                    std::string("\x01\x7F"),
                                    std::string("a?b#c;d=e&f"),
                                    std::string("a:b"),
                                    std::string("~"),
                                    std::string("..."),
                                    std::string("-x"),
                                    std::string("\"'\\<>&"),
                                    std::string("caf\xC3\xA9"),
                                    std::string("caf\xE9"),
                                    std::string("\xFF\xFE"),
                                    std::string("\xED\xA0\x80"),
                                    std::string(255, 'n'),
                                    std::string(255, '\xFF'),
                                    fortyLevels()}) {
        places.push_back({name, name});
    }
    for (const OddPlace& linked : {OddPlace{"first/sub/leaf", "real/sub/leaf"},
                                   {"real/middle/leaf", "real/sub/leaf"},
                                   {"real/sub/last", "real/sub/leaf", true},
                                   {"first/middle/last", "real/sub/leaf", true},
                                   {"chain/leaf", "real/sub/leaf"},
                                   {"first/middle/../sub/leaf", "real/sub/leaf"}}) {
        places.push_back(linked);
    }
    return places;
}

struct AFileInAnOddPlace : testing::Test {
    ksw::test::TempFolder files;
    const ScopedVariable home{"HOME", files.makeFolder("home")};
    const ScopedVariable data{"XDG_DATA_HOME", std::nullopt};
    const ScopedVariable language{"LANGUAGE", "en"};

    /// Calls `look` for each place, in a folder of the tree of its own.
    void inEachPlace(const std::string& base, const std::function<void(const OddPlace&)>& look) {
        files.makeFolder(base + "/real/sub/leaf");
        fs::create_directory_symlink("real", files.at(base + "/first"));
        fs::create_directory_symlink("sub", files.at(base + "/real/middle"));
        fs::create_directory_symlink("leaf", files.at(base + "/real/sub/last"));
        fs::create_directory_symlink("first/./middle/../middle", files.at(base + "/chain"));
        for (const OddPlace& odd : oddPlaces()) {
            SCOPED_TRACE(testing::PrintToString(odd.folder));
            files.makeFolder(base + "/" + odd.canonical);
            look({files.at(base + "/" + odd.folder), files.at(base + "/" + odd.canonical), odd.isLink});
        }
    }
    void inEachPlace(const std::function<void(const OddPlace&)>& look) { inEachPlace("base", look); }

    std::string write(const std::string& path, std::string_view content) const {
        return files.writeFile(path.substr(files.path().size() + 1), content);
    }
    KSWItem::Pointer itemAt(KSWItemType type, const URL& url) const {
        auto item = KSWItem::itemWithType(type, KSWItem::OptionalString("an.id"));
        item->setUrl(url);
        item->setBookmark(__ksw_bookmarkDataWithURL(url));
        return item;
    }
};

TEST_F(AFileInAnOddPlace, IsIdentifiedByTheURLOfItsCanonicalPath) {
    inEachPlace([&](const OddPlace& odd) {
        write(odd.canonical + "/my plan%.txt", "x");
        const auto identifier =
            ItemIdentifierForURLAndType(KSWItemTypeUserItem, URL::fileURL(odd.folder + "/my plan%.txt"));
        ASSERT_TRUE(identifier.has_value());
        EXPECT_EQ(*identifier, URL::fileURL(odd.canonical + "/my plan%.txt").absoluteString());
        EXPECT_TRUE(
            std::all_of(identifier->begin(), identifier->end(), [](char c) { return c > ' ' && c < 0x7F; }));
        const std::optional<URL> url = URL::fromString(*identifier);
        ASSERT_TRUE(url.has_value());
        EXPECT_EQ(url->path(), odd.canonical + "/my plan%.txt");
        EXPECT_EQ(ItemIdentifierForURLAndType(KSWItemTypeUserItem, *url), identifier);
    });
}

TEST_F(AFileInAnOddPlace, ThatIsAJobHasItsLabel) {
    inEachPlace([&](const OddPlace& odd) {
        write(odd.canonical + "/job.plist", "<plist><dict><key>Label</key><string>a.b</string></dict></plist>");
        fs::remove(odd.canonical + "/link.plist");
        fs::create_symlink("job.plist", odd.canonical + "/link.plist");
        for (const std::string name : {"/job.plist", "/link.plist"}) {
            EXPECT_EQ(LabelForStewardPlist(URL::fileURL(odd.folder + name)), "a.b");
            EXPECT_EQ(ItemIdentifierForURLAndType(KSWItemTypeAgent, URL::fileURL(odd.folder + name)), "8.a.b");
        }
    });
}

TEST_F(AFileInAnOddPlace, IsResolvedAndFollowedWhenItMoves) {
    inEachPlace([&](const OddPlace& odd) {
        const std::string path = odd.folder + "/plan.txt";
        const std::string moved = odd.folder + "/moved.txt";
        write(odd.canonical + "/plan.txt", "x");
        const auto item = itemAt(KSWItemTypeUserItem, URL::fileURL(path));
        EXPECT_EQ(item->resolvedURL(), URL::fileURL(path));
        EXPECT_FALSE(item->isResolvedURLStale());
        EXPECT_FALSE(item->syncURLAndBookmark());
        fs::rename(path, moved);
        const std::optional<URL> found = item->resolvedURL();
        ASSERT_TRUE(found.has_value());
        EXPECT_EQ(fs::canonical(found->path()), odd.canonical + "/moved.txt");
        EXPECT_TRUE(item->syncURLAndBookmark());
        EXPECT_EQ(item->url(), found);
        EXPECT_FALSE(item->isResolvedURLStale());
        EXPECT_FALSE(item->syncURLAndBookmark());
        fs::remove(moved);
    });
}

TEST_F(AFileInAnOddPlace, ThatIsTheFolderItselfIsResolvedAndFollowed) {
    inEachPlace([&](const OddPlace& odd) {
        const auto item = itemAt(KSWItemTypeApp, URL::fileURL(odd.folder, PathKind::Directory));
        EXPECT_EQ(item->resolvedURL(), URL::fileURL(odd.folder, PathKind::Directory));
        const std::string moved = fs::path(odd.canonical).parent_path().string() + "/moved";
        fs::rename(odd.canonical, moved);
        const std::optional<URL> found = item->resolvedURL();
        ASSERT_TRUE(found.has_value());
        EXPECT_EQ(fs::canonical(found->path()), moved);
        EXPECT_TRUE(item->syncURLAndBookmark());
        EXPECT_EQ(item->url(), found);
        fs::rename(moved, odd.canonical);
    });
}

TEST_F(AFileInAnOddPlace, LiesInTheApplicationsAroundIt) {
    inEachPlace([&](const OddPlace& odd) {
        const std::string outer = "/O %\n.app";
        const std::string inner = outer + "/Contents/I \xE9.app";
        write(odd.canonical + inner + "/Contents/Linux/tool", "x");
        const URL tool = URL::fileURL(odd.folder + inner + "/Contents/Linux/tool");
        EXPECT_EQ(__ksw_outerAppURL(tool), URL::fileURL(odd.folder + outer, PathKind::Directory));
        EXPECT_EQ(__ksw_innerAppURL(tool), URL::fileURL(odd.folder + inner, PathKind::Directory));
        EXPECT_EQ(__ksw_outerAppURL(URL::fileURL(odd.folder, PathKind::Directory)), std::nullopt);
    });
}

TEST_F(AFileInAnOddPlace, ThatIsTheTrashIsInTheTrash) {
    const auto isInTrash = [](const std::string& path) { return __ksw_isInTrash(URL::fileURL(path)); };
    inEachPlace("home/.local/share/Trash/files", [&](const OddPlace& odd) {
        write(odd.canonical + "/a", "x");
        EXPECT_TRUE(isInTrash(odd.folder));
        EXPECT_TRUE(isInTrash(odd.folder + "/a"));
        const auto item = itemAt(KSWItemTypeUserItem, URL::fileURL(odd.folder + "/a"));
        EXPECT_EQ(item->resolvedURL(), std::nullopt);
    });
    inEachPlace([&](const OddPlace& odd) { EXPECT_FALSE(isInTrash(odd.folder)); });
}

/// A folder and a link to another one change places all the time; there is a file of the same name in both.
TEST_F(AFileInAnOddPlace, ThatChangesAllTheTimeIsOneOfTheTwoAndNoOther) {
    const std::string inside = files.writeFile("tree/flip/a", "x");
    const std::string outside = files.writeFile("outside/a", "x");
    fs::create_directory_symlink(files.at("outside"), files.at("tree/flop"));
    const URL url = URL::fileURL(inside);
    const auto item = itemAt(KSWItemTypeUserItem, url);
    const auto identifierOf = [](const std::string& path) {
        return ItemIdentifierForURLAndType(KSWItemTypeUserItem, URL::fileURL(path));
    };
    const auto ofInside = identifierOf(inside);
    const auto ofOutside = identifierOf(outside);
    ksw::test::whileFlipping(files.at("tree/flip"), files.at("tree/flop"), [&] {
        const auto identifier = identifierOf(inside);
        EXPECT_TRUE(identifier == ofInside || identifier == ofOutside) << identifier.value_or("none");
        EXPECT_EQ(item->resolvedURL(), url);
        item->syncURLAndBookmark();
        EXPECT_EQ(item->url(), url);
        EXPECT_TRUE(item->bookmark().has_value());
    });
    EXPECT_EQ(identifierOf(inside), ofInside);
    item->syncURLAndBookmark();
    EXPECT_EQ(item->resolvedURL(), url);
    EXPECT_FALSE(item->isResolvedURLStale());
    EXPECT_FALSE(item->syncURLAndBookmark());
}

}  // namespace
