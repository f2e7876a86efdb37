#include "platform/base/paths.h"

#include <gtest/gtest.h>

namespace ksw {
namespace {

TEST(APath, HasALastComponentAndAFolder) {
    struct Row {
        std::string_view path;
        std::string_view name;
        std::string_view folder;
    };
    for (const Row& row : {Row{"/a/b", "b", "/a"},
                           {"/a/b//", "b", "/a"},
                           {"/a//b", "b", "/a"},
                           {"/a", "a", "/"},
                           {"//a", "a", "/"},
                           {"/", "/", ""},
                           {"///", "/", ""},
                           {"a", "a", ""},
                           {"", "", ""},
                           {"a/b", "b", "a"},
                           {"/a/..", "..", "/a"}}) {
        EXPECT_EQ(lastComponent(row.path), row.name) << row.path;
        EXPECT_EQ(folderOf(row.path), row.folder) << row.path;
    }
}

TEST(APath, IsMadeOfAFolderAndAName) {
    EXPECT_EQ(pathBelow("/a", "b"), "/a/b");
    EXPECT_EQ(pathBelow("/", "b/c"), "/b/c");
    EXPECT_EQ(pathBelow("/a/", "b"), "/a/b");
}

TEST(APath, IsBelowAFolderByWholeNames) {
    EXPECT_TRUE(isAtOrBelow("/a/b", "/a"));
    EXPECT_TRUE(isAtOrBelow("/a", "/a"));
    EXPECT_TRUE(isAtOrBelow("/a", "/"));
    EXPECT_TRUE(isAtOrBelow("/a", ""));
    EXPECT_FALSE(isAtOrBelow("/ab", "/a"));
    EXPECT_FALSE(isAtOrBelow("/", "/a"));
    EXPECT_FALSE(isAtOrBelow("a", "/"));
}

}  // namespace
}  // namespace ksw
