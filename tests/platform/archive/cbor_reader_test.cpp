// Single CBOR items: what is read, what is refused.
#include <cmath>

#include <gtest/gtest.h>

#include "tests/platform/archive/node.h"

namespace ksw::archive {
namespace {

/// A reader over bytes given in hexadecimal, with a budget of its own.
struct Input {
    explicit Input(std::string_view digits) : bytes(fromHex(digits)), budget(bytes.size()), reader(bytes, budget) {}

    std::string failure() const { return reader.ok() ? "none" : reader.failure().text; }

    Data bytes;
    DecodeBudget budget;
    Reader reader;
};

std::int64_t integerFrom(std::string_view digits) {
    Input input(digits);
    std::int64_t value = 0;
    EXPECT_TRUE(input.reader.integer(value) && input.reader.end()) << digits << ": " << input.failure();
    return value;
}

double realFrom(std::string_view digits) {
    Input input(digits);
    double value = 0;
    EXPECT_TRUE(input.reader.real(value) && input.reader.end()) << digits << ": " << input.failure();
    return value;
}

std::string skipFailure(std::string_view digits) {
    Input input(digits);
    static_cast<void>(input.reader.skip() && input.reader.end());
    return input.failure();
}

TEST(ACborReader, ReadsIntegersOfEveryWidth) {
    EXPECT_EQ(integerFrom("00"), 0);
    EXPECT_EQ(integerFrom("17"), 23);
    EXPECT_EQ(integerFrom("1818"), 24);
    EXPECT_EQ(integerFrom("190100"), 256);
    EXPECT_EQ(integerFrom("1a00010000"), 65'536);
    EXPECT_EQ(integerFrom("1b0000000100000000"), 4'294'967'296);
    EXPECT_EQ(integerFrom("20"), -1);
    EXPECT_EQ(integerFrom("3903e7"), -1000);
    EXPECT_EQ(integerFrom("1b7fffffffffffffff"), INT64_MAX);
    EXPECT_EQ(integerFrom("3b7fffffffffffffff"), INT64_MIN);
}

TEST(ACborReader, RefusesIntegersBeyondSixtyFourBitsWithSign) {
    for (const char* digits : {"1b8000000000000000", "3b8000000000000000"}) {
        Input input(digits);
        std::int64_t value = 0;
        EXPECT_FALSE(input.reader.integer(value));
        EXPECT_EQ(input.failure(), "integer out of range");
    }
}

TEST(ACborReader, RefusesHeadsThatAreNotShortest) {
    for (const char* digits : {"1817", "1900ff", "1a0000ffff", "1b00000000ffffffff"}) {
        Input input(digits);
        std::uint64_t value = 0;
        EXPECT_FALSE(input.reader.unsignedInteger(value));
        EXPECT_EQ(input.failure(), "not in shortest form") << digits;
    }
}

TEST(ACborReader, ReadsRealsOfEveryWidth) {
    EXPECT_EQ(realFrom("fb3ff8000000000000"), 1.5);
    EXPECT_EQ(realFrom("fa47c35000"), 100'000.0);
    EXPECT_EQ(realFrom("f93e00"), 1.5);
    EXPECT_EQ(realFrom("f90001"), 5.960464477539063e-8);
    EXPECT_EQ(realFrom("f9c400"), -4.0);
    EXPECT_EQ(realFrom("f97bff"), 65'504.0);
    EXPECT_TRUE(std::isinf(realFrom("f97c00")));
    EXPECT_TRUE(std::isnan(realFrom("f97e00")));
}

TEST(ACborReader, TellsTheKindOfTheNextItem) {
    EXPECT_EQ(Input("00").reader.peek(), ItemKind::Unsigned);
    EXPECT_EQ(Input("20").reader.peek(), ItemKind::Negative);
    EXPECT_EQ(Input("40").reader.peek(), ItemKind::Bytes);
    EXPECT_EQ(Input("60").reader.peek(), ItemKind::Text);
    EXPECT_EQ(Input("80").reader.peek(), ItemKind::Array);
    EXPECT_EQ(Input("a0").reader.peek(), ItemKind::Map);
    EXPECT_EQ(Input("c1").reader.peek(), ItemKind::Tag);
    EXPECT_EQ(Input("f5").reader.peek(), ItemKind::Boolean);
    EXPECT_EQ(Input("f6").reader.peek(), ItemKind::Null);
    EXPECT_EQ(Input("f9").reader.peek(), ItemKind::Real);
    EXPECT_EQ(Input("f7").reader.peek(), ItemKind::Other);
    EXPECT_EQ(Input("").reader.peek(), ItemKind::End);
}

TEST(ACborReader, KeepsItsFirstFailure) {
    Input input("60 60");
    std::int64_t number = 0;
    std::string text;
    EXPECT_FALSE(input.reader.integer(number));
    EXPECT_FALSE(input.reader.text(text));
    EXPECT_FALSE(input.reader.null());
    EXPECT_FALSE(input.reader.end());
    EXPECT_EQ(input.reader.error("here"), Error(FormatError::WrongType, "here: integer expected"));
}

TEST(ACborReader, TakesTextThatIsUtf8Only) {
    for (const char* good : {"60", "6141", "62c3bc", "63e282ac", "64f09f8c8d", "63ed9fbf", "64f48fbfbf",
                             "6c4142434445464748c3bc4142"}) {
        Input input(good);
        std::string text;
        EXPECT_TRUE(input.reader.text(text)) << good;
    }
    for (const char* bad : {"6180", "62c080", "62c328", "63e08080", "63eda080", "64f0808080", "64f4908080", "61f5",
                            "62e282", "6a41424344454647484980", "64f8888080"}) {
        Input input(bad);
        std::string text;
        EXPECT_FALSE(input.reader.text(text)) << bad;
        EXPECT_EQ(input.failure(), "text is not UTF-8") << bad;
    }
}

TEST(ACborReader, BoundsAText) {
    Input fits("63616263");
    Input long_("63616263");
    std::string_view text;
    EXPECT_TRUE(fits.reader.text(text, 3));
    EXPECT_FALSE(long_.reader.text(text, 2));
    EXPECT_EQ(long_.failure(), "text too long");
}

TEST(ACborReader, BoundsEveryString) {
    for (const std::size_t size : {limits::kStringMax, limits::kStringMax + 1}) {
        Data bytes = fromHex(size == limits::kStringMax ? "5a01000000" : "5a01000001");
        bytes.resize(bytes.size() + size);
        DecodeBudget budget(bytes.size());
        Reader reader(bytes, budget);
        Bytes view;
        EXPECT_EQ(reader.bytes(view, SIZE_MAX), size == limits::kStringMax);
    }
}

TEST(ACborReader, RefusesReservedHeads) {
    EXPECT_EQ(skipFailure("1c"), "not CBOR");
    EXPECT_EQ(skipFailure("fc"), "not CBOR");
    EXPECT_EQ(skipFailure("f818"), "not CBOR");
    EXPECT_EQ(skipFailure("ff"), "indefinite length");
    EXPECT_EQ(skipFailure("5f4100ff"), "indefinite length");
}

TEST(ACborReader, PassesOverAnything) {
    EXPECT_EQ(skipFailure("83 01 a2 61 61 f7 20 fb0000000000000000 d8 63 c1 f8ff"), "none");
    EXPECT_EQ(skipFailure("f93c00"), "none");
}

TEST(ACborReader, PassesOverAnArrayOfExactlyWhatItAnnounces) {
    EXPECT_EQ(skipFailure("82 01"), "more elements than bytes");
    EXPECT_EQ(skipFailure("82 81 01"), "cut short");
    EXPECT_EQ(skipFailure("81 c1"), "cut short");
    EXPECT_EQ(skipFailure("81 01 02"), "bytes behind the end");
}

TEST(ACborReader, PassesOverAThousandTags) {
    Data bytes(1000, 0xC1);
    bytes.push_back(0);
    DecodeBudget budget(bytes.size());
    Reader reader(bytes, budget);
    EXPECT_TRUE(reader.skip() && reader.end());
}

TEST(ACborReader, RefusesATagOtherThanTheOneAskedFor) {
    Input input("d820 60");
    EXPECT_FALSE(input.reader.tag(kUuidTag, "UUID expected"));
    EXPECT_EQ(input.failure(), "UUID expected");
}

}  // namespace
}  // namespace ksw::archive
