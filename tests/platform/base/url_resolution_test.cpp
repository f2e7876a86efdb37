#include <gtest/gtest.h>

#include <ostream>

#include <kestrelwood/values/url.h>

namespace ksw {
namespace {

struct Example {
    const char* reference;
    const char* expected;
};

std::ostream& operator<<(std::ostream& stream, const Example& example) {
    return stream << example.reference;
}

class AReference : public testing::TestWithParam<Example> {};

TEST_P(AReference, ResolvesAgainstTheBaseAsRfc3986Shows) {
    const URL base = *URL::fromString("http://a/b/c/d;p?q");
    const std::optional<URL> url = URL::fromString(GetParam().reference, base);
    ASSERT_TRUE(url.has_value());
    EXPECT_EQ(url->absoluteString(), GetParam().expected);
    EXPECT_EQ(url->absoluteURL().absoluteString(), GetParam().expected);
    EXPECT_EQ(url->relativeString(), GetParam().reference);
}

INSTANTIATE_TEST_SUITE_P(
    Normal, AReference,
    testing::Values(Example{"g:h", "g:h"}, Example{"g", "http://a/b/c/g"}, Example{"./g", "http://a/b/c/g"},
                    Example{"g/", "http://a/b/c/g/"}, Example{"/g", "http://a/g"}, Example{"//g", "http://g"},
                    Example{"?y", "http://a/b/c/d;p?y"}, Example{"g?y", "http://a/b/c/g?y"},
                    Example{"#s", "http://a/b/c/d;p?q#s"}, Example{"g#s", "http://a/b/c/g#s"},
                    Example{"g?y#s", "http://a/b/c/g?y#s"}, Example{";x", "http://a/b/c/;x"},
                    Example{"g;x", "http://a/b/c/g;x"}, Example{"g;x?y#s", "http://a/b/c/g;x?y#s"},
                    Example{"", "http://a/b/c/d;p?q"}, Example{".", "http://a/b/c/"},
                    Example{"./", "http://a/b/c/"}, Example{"..", "http://a/b/"}, Example{"../", "http://a/b/"},
                    Example{"../g", "http://a/b/g"}, Example{"../..", "http://a/"}, Example{"../../", "http://a/"},
                    Example{"../../g", "http://a/g"}));

INSTANTIATE_TEST_SUITE_P(
    Abnormal, AReference,
    testing::Values(Example{"../../../g", "http://a/g"}, Example{"../../../../g", "http://a/g"},
                    Example{"/./g", "http://a/g"}, Example{"/../g", "http://a/g"}, Example{"g.", "http://a/b/c/g."},
                    Example{".g", "http://a/b/c/.g"}, Example{"g..", "http://a/b/c/g.."},
                    Example{"..g", "http://a/b/c/..g"}, Example{"./../g", "http://a/b/g"},
                    Example{"./g/.", "http://a/b/c/g/"}, Example{"g/./h", "http://a/b/c/g/h"},
                    Example{"g/../h", "http://a/b/c/h"}, Example{"g;x=1/./y", "http://a/b/c/g;x=1/y"},
                    Example{"g;x=1/../y", "http://a/b/c/y"}, Example{"g?y/./x", "http://a/b/c/g?y/./x"},
                    Example{"g?y/../x", "http://a/b/c/g?y/../x"}, Example{"g#s/./x", "http://a/b/c/g#s/./x"},
                    Example{"g#s/../x", "http://a/b/c/g#s/../x"}, Example{"http:g", "http:g"}));

std::string resolved(std::string_view reference, std::string_view base) {
    return URL::fromString(reference, *URL::fromString(base))->absoluteString();
}

TEST(ARelativeUrl, GetsASlashBetweenAnAuthorityWithoutPathAndItsOwnPath) {
    EXPECT_EQ(resolved("g", "http://host"), "http://host/g");
}

TEST(ARelativeUrl, NeverTurnsItsPathIntoAnAuthority) {
    EXPECT_EQ(resolved("/.//etc/passwd", "x:/a"), "x:/.//etc/passwd");
}

TEST(ARelativeUrl, OnABaseThatIsRelativeStaysRelative) {
    EXPECT_EQ(resolved("c", "a/b"), "a/c");
    EXPECT_EQ(resolved("../c", "a/b"), "c");
    EXPECT_EQ(resolved("../../c", "a/b"), "c");
    EXPECT_EQ(resolved("..//..//c", "a/b"), "c");
}

TEST(ARelativeUrl, NeverTurnsItsFirstSegmentIntoAScheme) {
    const std::string text = resolved("./b:c", "a");
    EXPECT_EQ(text, "./b:c");
    EXPECT_TRUE(URL::fromString(text)->scheme().empty());
}

TEST(ABaseWithABaseOfItsOwn, IsKeptInItsAbsoluteForm) {
    const URL root = *URL::fromString("file:///a/");
    const URL middle = *URL::fromString("b/", root);
    const URL leaf = *URL::fromString("c", middle);
    EXPECT_EQ(leaf.absoluteString(), "file:///a/b/c");
    ASSERT_NE(leaf.baseURL(), nullptr);
    EXPECT_EQ(leaf.baseURL()->relativeString(), "file:///a/b/");
    EXPECT_EQ(leaf.baseURL()->baseURL(), nullptr);
}

TEST(AnAbsoluteUrl, KeepsNoBase) {
    EXPECT_EQ(URL::fromString("file:///x", *URL::fromString("file:///a/"))->baseURL(), nullptr);
    EXPECT_EQ(URL::fileURL("/x", URL::fileURL("/a")).baseURL(), nullptr);
}

}  // namespace
}  // namespace ksw
