#include "platform/base/text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

struct Bird {
    std::string name;
};
std::string describe(const Bird& bird) {
    return "bird " + bird.name;
}

struct Nest {
    std::string description() const { return "a nest"; }
};

enum class Size : int { Small = 1 };

}  // namespace

namespace ksw {
namespace {

template <class... Arguments>
std::string publicForm(std::string_view text, Arguments&&... arguments) {
    const TextArgument list[] = {textArgument(std::forward<Arguments>(arguments))...};
    return formatText(text, list, Disclosure::Public);
}

TEST(AText, TakesNumbersInEveryForm) {
    EXPECT_EQ(format("%d %ld %u %lu", -5, std::int64_t{-6}, 7U, std::uint64_t{8}), "-5 -6 7 8");
    EXPECT_EQ(format("%lX %x %#lx %#X", 0xBEEFL, 255, 8, 255), "BEEF ff 0x8 0XFF");
    EXPECT_EQ(format("%#lx", 0), "0");
    EXPECT_EQ(format("%x %lx", -1, std::int64_t{-1}), "ffffffff ffffffffffffffff");
    EXPECT_EQ(format("%d", std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(format("%lu", std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
    EXPECT_EQ(format("%d", 4294967294U), "4294967294");
    EXPECT_EQ(format("%+d|%05d|%-5d|%5d|%c", 3, -42, 42, 42, 'k'), "+3|-0042|42   |   42|k");
    EXPECT_EQ(format("%.2f %g %e", 2.5, 0.1, 1.0), "2.50 0.1 1.000000e+00");
    EXPECT_EQ(format("%d", Size::Small), "1");
}

TEST(AText, WritesBoolsAsWordsOrDigits) {
    EXPECT_EQ(format("%{bool}d %{bool}d %@ %d", true, false, true, false), "true false 1 0");
}

TEST(AText, WritesAddresses) {
    const Bird bird{"kestrel"};
    EXPECT_EQ(format("%p", reinterpret_cast<const void*>(0x1A2B)), "0x1a2b");
    EXPECT_EQ(format("%p", static_cast<const void*>(nullptr)), "0x0");
    EXPECT_EQ(format("%p", &bird), format("%p", static_cast<const void*>(&bird)));
}

TEST(AText, AlignsInAWidth) {
    EXPECT_EQ(format("  %19s: %@\n", "Type", "agent"), "                 Type: agent\n");
    EXPECT_EQ(format("%-6s|%3s|%.2s", "ab", "abcd", "abcd"), "ab    |abcd|ab");
}

TEST(AText, DescribesObjects) {
    EXPECT_EQ(format("%@, %@", Bird{"kestrel"}, Nest{}), "bird kestrel, a nest");
    EXPECT_EQ(format("%@", std::make_shared<Bird>(Bird{"owl"})), "bird owl");
    EXPECT_EQ(format("%@", Error("D", 3, "gone")), "Error Domain=D Code=3 \"gone\"");
    EXPECT_EQ(format("%@", UUID{}), "00000000-0000-0000-0000-000000000000");
    EXPECT_EQ(format("%@", Date{}), "2001-01-01 00:00:00 +0000");
    EXPECT_EQ(format("%@", Data{1, 2}), "{length = 2, bytes = 0x0102}");
    EXPECT_EQ(format("%@", Value(Array{1, "a"})), "(1, a)");
    EXPECT_EQ(format("%@", Dictionary{{"k", true}}), "{k = 1}");
}

TEST(AText, WritesAUrlAsItsTextOrInAbsoluteFormWhenItHasABase) {
    EXPECT_EQ(format("%@", URL::fileURL("a b")), "a%20b");
    EXPECT_EQ(format("%@", URL::fileURL("b", URL::fileURL("/a/"))), "file:///a/b");
}

TEST(AText, WritesSequencesInParentheses) {
    EXPECT_EQ(format("%@", std::vector<std::string>{"a", "b"}), "(a, b)");
    EXPECT_EQ(format("%@", std::vector<std::shared_ptr<Bird>>{nullptr}), "((null))");
    EXPECT_EQ(format("%@", Array{}), "()");
}

TEST(AText, WritesNullForWhatIsAbsent) {
    const char* none = nullptr;
    const Bird* noBird = nullptr;
    EXPECT_EQ(format("%@ %@ %@ %s %@ %@", nullptr, std::nullopt, std::optional<std::string>(), none, noBird,
                     std::shared_ptr<Bird>()),
              "(null) (null) (null) (null) (null) (null)");
}

TEST(AText, LooksIntoOptionals) {
    EXPECT_EQ(format("%@ %d", std::optional<std::string>("a"), std::optional<int>(4)), "a 4");
}

TEST(AText, DoublesThePercentSign) {
    EXPECT_EQ(format("100%% of %d%%", 5), "100% of 5%");
}

TEST(AText, SurvivesArgumentsThatDoNotFit) {
    EXPECT_EQ(format("%d %x %{bool}d", "text", Bird{"owl"}, std::string("s")), "text bird owl s");
    EXPECT_EQ(format("%s %@ %p", 5, 1.5, std::string("s")), "5 1.5 s");
    EXPECT_EQ(format("%x", 2.5), "0");
    EXPECT_EQ(format("%@ %@", 1), "1 <missing>");
    EXPECT_EQ(format("none", 1, 2), "none");
}

TEST(AText, SurvivesPlaceholdersThatMakeNoSense) {
    EXPECT_EQ(format("%", 1), "%");
    EXPECT_EQ(format("100%"), "100%");
    EXPECT_EQ(format("%{public", 1), "1public");
    EXPECT_EQ(format("%y", 1), "1");
    EXPECT_EQ(format("%99999999999999999999d", 1).size(), 1'024U);
    EXPECT_EQ(format("%.99999999999f", 1.0).size(), 34U);
    EXPECT_EQ(format("%f", std::numeric_limits<double>::max()).size(), 316U);
    EXPECT_EQ(format("%f %g", std::nan(""), std::numeric_limits<double>::infinity()), "nan inf");
}

TEST(APublicForm, HidesWhatIsNotMarkedPublic) {
    EXPECT_EQ(publicForm("%@ %{public}@ %s", std::string("a"), std::string("b"), std::string("c")),
              "<private> b <private>");
}

TEST(APublicForm, ShowsNumbersThatAreFormattedAsNumbers) {
    EXPECT_EQ(publicForm("%d %ld %lX %#lx %p %{bool}d %f", 1, 2L, 255, 255, reinterpret_cast<void*>(16), true, 1.0),
              "1 2 FF 0xff 0x10 true 1.000000");
    EXPECT_EQ(publicForm("%@ %s", 1, 2), "<private> <private>");
}

TEST(APublicForm, ShowsLiteralsGivenForS) {
    const std::string_view operation = "getItem";
    EXPECT_EQ(publicForm("%s %s %s", "literal", Literal{operation}, operation), "literal getItem <private>");
    EXPECT_EQ(publicForm("%@", "literal"), "<private>");
}

TEST(APublicForm, HidesACharacterArrayThatTheProgramFillsIn) {
    char buffer[] = "secret";
    EXPECT_EQ(publicForm("%s", buffer), "<private>");
}

TEST(APublicForm, HidesTextThatIsGivenWhereANumberIsExpected) {
    EXPECT_EQ(publicForm("%d %x %{bool}d %p", std::string("a"), Bird{"owl"}, "b", std::string("c")),
              "<private> <private> <private> <private>");
}

TEST(APublicForm, HidesANumberThatIsMarkedPrivate) {
    EXPECT_EQ(publicForm("%{private}d %{public, bool}d", 1, true), "<private> true");
}

TEST(APublicForm, ShowsTheSizeOfNothingPrivate) {
    EXPECT_EQ(publicForm("%2@|", std::string(40, 'x')), "<private>|");
}

}  // namespace
}  // namespace ksw
