#include <gtest/gtest.h>

#include <limits>
#include <set>

#include <kestrelwood/values.h>

namespace ksw {
namespace {

TEST(Bytes, AreShownUpToTheTwentyFourth) {
    EXPECT_EQ(describe(Bytes()), "{length = 0, bytes = 0x}");
    EXPECT_EQ(describe(Bytes(Data{0x00, 0xAB, 0x0F})), "{length = 3, bytes = 0x00ab0f}");
    EXPECT_EQ(describe(Bytes(Data(24, 0))), "{length = 24, bytes = 0x" + std::string(48, '0') + "}");
    EXPECT_EQ(describe(Bytes(Data(25, 0))), "{length = 25, bytes = 0x" + std::string(48, '0') + " ...}");
}

TEST(AUuid, ThatIsRandomHasVersionFourAndTheVariant) {
    std::set<UUID> seen;
    for (int i = 0; i < 100; ++i) {
        const UUID uuid = UUID::random();
        EXPECT_EQ(uuid.bytes[6] >> 4U, 4);
        EXPECT_EQ(uuid.bytes[8] >> 6U, 2);
        seen.insert(uuid);
    }
    EXPECT_EQ(seen.size(), 100U);
}

TEST(AUuid, ReadsItsTextInEitherCaseAndWritesItInUpperCase) {
    const char* text = "F81D4FAE-7DEC-11D0-A765-00A0C91E6BF6";
    EXPECT_EQ(UUID::fromString(text)->string(), text);
    EXPECT_EQ(UUID::fromString("f81d4fae-7dec-11d0-a765-00a0c91e6bf6")->string(), text);
    EXPECT_EQ(UUID::fromString(text)->bytes[0], 0xF8);
    EXPECT_EQ(UUID::fromString(text)->bytes[15], 0xF6);
}

TEST(AUuid, RefusesAnyOtherText) {
    for (const char* text : {"", "F81D4FAE7DEC11D0A76500A0C91E6BF6", "F81D4FAE-7DEC-11D0-A765-00A0C91E6BF",
                             "F81D4FAE-7DEC-11D0-A765-00A0C91E6BF66", "F81D4FAE-7DEC-11D0-A765-00A0C91E6BFG",
                             "F81D4FAE-7DEC-11D0-A765000A0C91E6BF6", "{81D4FAE-7DEC-11D0-A765-00A0C91E6BF6"}) {
        EXPECT_FALSE(UUID::fromString(text).has_value()) << text;
    }
}

TEST(ADate, CountsFromTheReferenceDate) {
    EXPECT_EQ(Date::fromUnix(978'307'200, 500'000'000).secondsSinceReference, 0.5);
    EXPECT_EQ(Date{}.string(), "2001-01-01 00:00:00 +0000");
    EXPECT_EQ(Date::fromUnix(0, 0).string(), "1970-01-01 00:00:00 +0000");
}

TEST(ADate, IsCutToWholeSecondsDownwards) {
    EXPECT_EQ(Date{0.9}.string(), "2001-01-01 00:00:00 +0000");
    EXPECT_EQ(Date{-0.1}.string(), "2000-12-31 23:59:59 +0000");
}

TEST(ADate, ReadsRfc3339InUtc) {
    EXPECT_EQ(Date::fromString("2001-01-01T00:00:00Z")->secondsSinceReference, 0);
    EXPECT_EQ(Date::fromString("2024-02-29T12:34:56Z")->string(), "2024-02-29 12:34:56 +0000");
    EXPECT_EQ(Date::fromString("0000-01-01T00:00:00Z")->string(), "0000-01-01 00:00:00 +0000");
    EXPECT_EQ(Date::fromString("9999-12-31T23:59:59Z")->string(), "9999-12-31 23:59:59 +0000");
}

TEST(ADate, RefusesAnyOtherText) {
    for (const char* text :
         {"", "2001-01-01", "2001-01-01T00:00:00", "2001-01-01T00:00:00z", "2001-13-01T00:00:00Z",
          "2001-00-01T00:00:00Z", "2023-02-29T00:00:00Z", "2001-01-01T24:00:00Z", "2001-01-01T00:60:00Z",
          "2001-01-01T00:00:60Z", "2001-01-01 00:00:00Z", "+001-01-01T00:00:00Z", "2001-01-01T00:00:00.5Z"}) {
        EXPECT_FALSE(Date::fromString(text).has_value()) << text;
    }
}

TEST(ADate, BeyondTheCalendarSaysSo) {
    for (double seconds :
         {1e300, -1e300, 1e12, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_EQ(Date{seconds}.string(), "(no such date)");
    }
    EXPECT_EQ(Date::fromUnix(std::numeric_limits<std::int64_t>::min(), 0).string(), "(no such date)");
}

TEST(AnError, DescribesItself) {
    EXPECT_EQ(Error("KSWErrorDomain", -1).description(), "Error Domain=KSWErrorDomain Code=-1");
    EXPECT_EQ(Error("KSWErrorDomain", -1, "generic").description(),
              "Error Domain=KSWErrorDomain Code=-1 \"generic\"");
}

TEST(AnError, KeepsItsTextInTheUserInformation) {
    const Error error(FormatError::WrongType, "not a string");
    EXPECT_EQ(error.domain(), kFormatErrorDomain);
    EXPECT_EQ(error.code(), 2);
    EXPECT_EQ(error.localizedDescription(), "not a string");
    EXPECT_EQ(error.userInfo().size(), 1U);
    EXPECT_EQ(Error("D", 1).localizedDescription(), "");
}

TEST(Errors, AreEqualWhenDomainCodeAndUserInformationAre) {
    EXPECT_EQ(Error("D", 1, "t"), Error("D", 1, "t"));
    EXPECT_FALSE(Error("D", 1, "t") == Error("D", 1, "u"));
    EXPECT_FALSE(Error("D", 1) == Error("E", 1));
    EXPECT_FALSE(Error("D", 1) == Error("D", 2));
}

TEST(AnError, MayCarryItsCause) {
    const Error error("D", 1, Dictionary{{"cause", Error("E", 2, "because")}});
    ASSERT_NE(find<Error>(error.userInfo(), "cause"), nullptr);
    EXPECT_EQ(find<Error>(error.userInfo(), "cause")->code(), 2);
}

TEST(AValue, HoldsEqualNumbersAlike) {
    EXPECT_EQ(Value(std::uint64_t{5}), Value(5));
    EXPECT_NE(Value(std::numeric_limits<std::uint64_t>::max()).as<std::uint64_t>(), nullptr);
    EXPECT_NE(Value(static_cast<std::uint64_t>(INT64_MAX)).as<std::int64_t>(), nullptr);
    EXPECT_FALSE(Value(1) == Value(true));
}

TEST(AValue, DescribesEveryKind) {
    const Dictionary dictionary{
        {"a", Array{}},    {"b", true},          {"c", 0.5},
        {"d", Data{0xFF}}, {"e", Date{}},        {"f", std::numeric_limits<std::uint64_t>::max()},
        {"g", Value()},    {"h", Error("D", 1)}, {"i", Array{-1, "text", Dictionary{}}}};
    EXPECT_EQ(describe(dictionary),
              "{a = (); b = 1; c = 0.5; d = {length = 1, bytes = 0xff}; e = 2001-01-01 00:00:00 +0000; "
              "f = 18446744073709551615; g = (null); h = Error Domain=D Code=1; i = (-1, text, {})}");
    EXPECT_EQ(describe(Value(dictionary)), describe(dictionary));
}

TEST(FindingInADictionary, WantsTheKeyAndTheType) {
    const Dictionary dictionary{{"Label", "job"}, {"Nice", 5}};
    EXPECT_EQ(*find<std::string>(dictionary, "Label"), "job");
    EXPECT_EQ(find<std::string>(dictionary, "Nice"), nullptr);
    EXPECT_EQ(find<std::string>(dictionary, "Program"), nullptr);
}

}  // namespace
}  // namespace ksw
