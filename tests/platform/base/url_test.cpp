#include <gtest/gtest.h>

#include <kestrelwood/values/url.h>

namespace ksw {
namespace {

class TextThatIsNoUrl : public testing::TestWithParam<const char*> {};

TEST_P(TextThatIsNoUrl, IsRefused) {
    EXPECT_FALSE(URL::fromString(GetParam()).has_value());
    EXPECT_FALSE(URL::fromString(GetParam(), URL::fileURL("/")).has_value());
}

INSTANTIATE_TEST_SUITE_P(All, TextThatIsNoUrl,
                         testing::Values("a b", "a\n", "\x01", "\x7f", "%", "%4", "%4g", "%g4", "caf\xc3\xa9",
                                         "\xff", "a\"b", "a<b", "a>b", "a\\b", "a^b", "a`b", "a{b", "a|b", "a}b",
                                         "a#b#c", "1a:b", ":a", "-x:y"));

TEST(AUrl, RefusesANulByte) {
    EXPECT_FALSE(URL::fromString(std::string_view("a\0b", 3)).has_value());
}

TEST(AUrl, KeepsItsTextAsGiven) {
    for (const char* text : {"", "a", "./a", "HTTP://User@Host:80/%7Ex/?q=1/2?#f/?", "x:", "x:/", "//h", "?", "#",
                             "file:///a%2fb", "a/b:c"}) {
        ASSERT_TRUE(URL::fromString(text).has_value()) << text;
        EXPECT_EQ(URL::fromString(text)->relativeString(), text);
        EXPECT_EQ(URL::fromString(text)->absoluteString(), text);
    }
}

TEST(AUrl, HasItsSchemeInLowerCase) {
    EXPECT_EQ(URL::fromString("FiLe:///a")->scheme(), "file");
    EXPECT_TRUE(URL::fromString("FiLe:///a")->isFileURL());
    EXPECT_EQ(URL::fromString("a/b")->scheme(), "");
    EXPECT_FALSE(URL::fromString("http://h/")->isFileURL());
}

TEST(ARelativeUrl, HasTheSchemeOfItsBase) {
    EXPECT_TRUE(URL::fromString("b", URL::fileURL("/a/"))->isFileURL());
}

struct PathExample {
    std::string path;
    const char* url;
};

class APath : public testing::TestWithParam<PathExample> {};

TEST_P(APath, SurvivesItsFileUrl) {
    const URL url = URL::fileURL(GetParam().path);
    EXPECT_EQ(url.relativeString(), GetParam().url);
    EXPECT_EQ(url.path(), GetParam().path);
    EXPECT_EQ(url.relativePath(), GetParam().path);
    EXPECT_TRUE(URL::fromString(url.relativeString()).has_value());
}

INSTANTIATE_TEST_SUITE_P(
    All, APath,
    testing::Values(PathExample{"/", "file:///"}, PathExample{"/a", "file:///a"},
                    PathExample{"/a b", "file:///a%20b"}, PathExample{"/100%", "file:///100%25"},
                    PathExample{"/%20", "file:///%2520"}, PathExample{"/a\nb", "file:///a%0Ab"},
                    PathExample{"/\xff\xfe", "file:///%FF%FE"}, PathExample{"/caf\xc3\xa9", "file:///caf%C3%A9"},
                    PathExample{"/q?#[]", "file:///q%3F%23%5B%5D"}, PathExample{"//double", "file:////double"},
                    PathExample{"/a:b;c=d", "file:///a:b;c=d"},
                    PathExample{std::string("/n\0l", 4), "file:///n%00l"}, PathExample{"a:b/c:d", "a%3Ab/c:d"},
                    PathExample{"a b", "a%20b"}, PathExample{"", ""}));

TEST(AFileUrl, OfADirectoryEndsInASlash) {
    const URL url = URL::fileURL("/Applications/Writer.app", PathKind::Directory);
    EXPECT_EQ(url.relativeString(), "file:///Applications/Writer.app/");
    EXPECT_TRUE(url.hasDirectoryPath());
    EXPECT_EQ(url.path(), "/Applications/Writer.app");
    EXPECT_EQ(URL::fileURL("/a/", PathKind::Directory).relativeString(), "file:///a/");
    EXPECT_EQ(URL::fileURL("", PathKind::Directory).relativeString(), "./");
}

TEST(AFileUrl, RelativeToABaseResolvesBelowIt) {
    const URL base = URL::fileURL("/Applications/My App.app", PathKind::Directory);
    const URL url = URL::fileURL("Contents/Helper 1", base);
    EXPECT_EQ(url.relativePath(), "Contents/Helper 1");
    EXPECT_EQ(url.path(), "/Applications/My App.app/Contents/Helper 1");
    EXPECT_EQ(url.absoluteString(), "file:///Applications/My%20App.app/Contents/Helper%201");
}

TEST(AUrl, DropsTrailingSlashesOfPathsButTheRoot) {
    EXPECT_EQ(URL::fromString("file:///a//")->path(), "/a");
    EXPECT_EQ(URL::fromString("file:////")->path(), "/");
    EXPECT_EQ(URL::fromString("a/?q")->relativePath(), "a");
}

TEST(AUrl, GivesTheLastComponentDecoded) {
    EXPECT_EQ(URL::fileURL("/a/b c").lastPathComponent(), "b c");
    EXPECT_EQ(URL::fileURL("/a/b/", PathKind::Directory).lastPathComponent(), "b");
    EXPECT_EQ(URL::fileURL("/").lastPathComponent(), "/");
    EXPECT_EQ(URL::fromString("")->lastPathComponent(), "");
    EXPECT_EQ(URL::fromString("http://host")->lastPathComponent(), "");
    EXPECT_EQ(URL::fromString("x", URL::fileURL("/a/"))->lastPathComponent(), "x");
}

TEST(AppendingAComponent, EncodesItAndKeepsBaseQueryAndFragment) {
    EXPECT_EQ(URL::fileURL("/a").appendingPathComponent("b c").relativeString(), "file:///a/b%20c");
    EXPECT_EQ(URL::fileURL("/a/").appendingPathComponent("/b", PathKind::Directory).relativeString(),
              "file:///a/b/");
    EXPECT_EQ(URL::fromString("http://h?q#f")->appendingPathComponent("x").relativeString(), "http://h/x?q#f");
    EXPECT_EQ(URL::fromString("")->appendingPathComponent("a:b").relativeString(), "a%3Ab");
    const URL relative = URL::fromString("b", URL::fileURL("/a/"))->appendingPathComponent("c");
    EXPECT_EQ(relative.relativeString(), "b/c");
    EXPECT_EQ(relative.absoluteString(), "file:///a/b/c");
}

TEST(AppendingAComponent, ToAnEmptyRelativeUrlGoesBelowTheBase) {
    EXPECT_EQ(URL::fromString("", URL::fileURL("/a/b"))->appendingPathComponent("c").absoluteString(),
              "file:///a/b/c");
}

TEST(DeletingTheLastComponent, LeavesADirectory) {
    EXPECT_EQ(URL::fileURL("/a/b").deletingLastPathComponent().relativeString(), "file:///a/");
    EXPECT_EQ(URL::fileURL("/a/b/").deletingLastPathComponent().relativeString(), "file:///a/");
    EXPECT_EQ(URL::fileURL("/a").deletingLastPathComponent().relativeString(), "file:///");
    EXPECT_EQ(URL::fileURL("/").deletingLastPathComponent().relativeString(), "file:///");
    EXPECT_EQ(URL::fromString("http://h/a?q#f")->deletingLastPathComponent().relativeString(), "http://h/");
}

TEST(DeletingTheLastComponent, OfARelativeUrlNamesTheParent) {
    const URL base = URL::fileURL("/x/y/", PathKind::Directory);
    EXPECT_EQ(URL::fromString("b", base)->deletingLastPathComponent().absoluteString(), "file:///x/y/");
    EXPECT_EQ(URL::fromString("b/c", base)->deletingLastPathComponent().relativeString(), "b/");
    EXPECT_EQ(URL::fromString("", base)->deletingLastPathComponent().absoluteString(), "file:///x/");
    EXPECT_EQ(URL::fromString("..", base)->deletingLastPathComponent().absoluteString(), "file:///");
}

TEST(Urls, AreEqualWhenTextAndBaseAre) {
    const URL base = URL::fileURL("/a/");
    EXPECT_EQ(*URL::fromString("b", base), *URL::fromString("b", URL::fileURL("/a/")));
    EXPECT_FALSE(*URL::fromString("b", base) == *URL::fromString("b"));
    EXPECT_FALSE(*URL::fromString("b", base) == *URL::fromString("b", URL::fileURL("/c/")));
    EXPECT_FALSE(URL::fileURL("/a/b") == *URL::fromString("b", base));
}

TEST(PathComponents, CountRepeatedSlashesOnce) {
    using Names = std::vector<std::string>;
    EXPECT_EQ(pathComponents("/a//b/"), (Names{"/", "a", "b"}));
    EXPECT_EQ(pathComponents("a/b"), (Names{"a", "b"}));
    EXPECT_EQ(pathComponents("///"), (Names{"/"}));
    EXPECT_EQ(pathComponents(""), Names{});
}

}  // namespace
}  // namespace ksw
