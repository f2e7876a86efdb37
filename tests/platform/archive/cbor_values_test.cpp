// The system's values in CBOR, both ways.
#include <gtest/gtest.h>

#include "tests/platform/archive/node.h"

namespace ksw::archive {
namespace {

std::string written(const Value& value) {
    Writer writer;
    writer.value(value);
    const auto bytes = writer.take();
    return bytes ? toHex(*bytes) : std::string(bytes.error().localizedDescription());
}

/// What reading a value ends in: "" or the failure.
std::string readFailure(std::string_view digits, Value* value = nullptr, ValueKinds kinds = ValueKinds::Any) {
    const Data bytes = fromHex(digits);
    DecodeBudget budget(bytes.size());
    Reader reader(bytes, budget);
    Value read;
    if (!reader.value(read, kinds) || !reader.end()) {
        return reader.failure().text;
    }
    EXPECT_EQ(budget.depth(), 0U) << digits;
    if (value != nullptr) {
        *value = std::move(read);
    }
    return "";
}

Value sample() {
    return Dictionary{
        {"array", Array{Value(), true, 1, -1, UINT64_MAX, 0.25, "text", Data{1}, Date{3}, Array{}, Dictionary{}}},
        {"cause", Error("Domain", -4, Dictionary{{"under", Error("Other", 5)}, {"why", "because"}})}};
}

TEST(AValue, ComesBackAsItWasWritten) {
    Value back;
    EXPECT_EQ(readFailure(written(sample()), &back), "");
    EXPECT_EQ(back, sample());
}

TEST(AValue, HasTheFormThatItsKindHasInCbor) {
    EXPECT_EQ(written(Value()), "f6");
    EXPECT_EQ(written(false), "f4");
    EXPECT_EQ(written(500), "1901f4");
    EXPECT_EQ(written(-500), "3901f3");
    EXPECT_EQ(written(UINT64_MAX), "1bffffffffffffffff");
    EXPECT_EQ(written(1.5), "fb3ff8000000000000");
    EXPECT_EQ(written("\xC3\xBC"), "62c3bc");
    EXPECT_EQ(written(Data{1, 2}), "420102");
    EXPECT_EQ(written(Array{1}), "8101");
    EXPECT_EQ(written(Dictionary{{"b", 1}, {"a", 2}}),
              "a2"
              "616102"
              "616201");
    EXPECT_EQ(written(Date{1}),
              "d81b"
              "82"
              "6444617465"
              "a1"
              "677365636f6e6473"
              "fb3ff0000000000000");
    EXPECT_EQ(written(Error("D", 2)),
              "d81b"
              "82"
              "654572726f72"
              "a3"
              "66646f6d61696e"
              "6144"
              "64636f6465"
              "02"
              "6875736572496e666f"
              "a0");
}

TEST(AValue, OfAKindThatIsNotAllowedIsRefused) {
    constexpr const char* kRefused = "a value of this kind is not allowed here";
    const std::pair<const char*, ValueKinds> forms[] = {
        {"f6", ValueKinds::Null},
        {"f4", ValueKinds::Boolean},
        {"00", ValueKinds::Integer},
        {"20", ValueKinds::Integer},
        {"f90000", ValueKinds::Real},
        {"60", ValueKinds::String},
        {"40", ValueKinds::Data},
        {"80", ValueKinds::Array},
        {"a0", ValueKinds::Dictionary},
        {"d81b826444617465a1677365636f6e6473f90000", ValueKinds::Date},
        {"d81b82654572726f72a266646f6d61696e6064636f646500", ValueKinds::Error}};
    for (const auto& [digits, kind] : forms) {
        const auto others =
            static_cast<ValueKinds>(static_cast<unsigned>(ValueKinds::Any) & ~static_cast<unsigned>(kind));
        EXPECT_EQ(readFailure(digits, nullptr, kind), "") << digits;
        EXPECT_EQ(readFailure(digits, nullptr, others), kRefused) << digits;
    }
}

TEST(AValue, InAnotherIsHeldToTheSameKinds) {
    constexpr auto kLists = ValueKinds::Array | ValueKinds::String;
    EXPECT_EQ(readFailure("82 60 81 60", nullptr, kLists), "");
    EXPECT_EQ(readFailure("82 60 81 00", nullptr, kLists), "a value of this kind is not allowed here");
}

TEST(AValue, WithAKeyTwiceIsRefused) {
    EXPECT_EQ(readFailure("a2 6161 01 6161 02"), "key occurs twice");
    EXPECT_EQ(readFailure("d81b 82 654572726f72 a2 64636f6465 01 64636f6465 01"), "key occurs twice");
    EXPECT_EQ(readFailure("d81b 82 6444617465 a2 677365636f6e6473 f90000 677365636f6e6473 f90000"),
              "key occurs twice");
}

TEST(AValue, WithKeysThatAreNotTextIsRefused) {
    EXPECT_EQ(readFailure("a1 01 02"), "text expected");
}

TEST(AValue, OfAnUnknownClassIsRefused) {
    EXPECT_EQ(readFailure("d81b 82 6341 42 43 a0"), "a value of this class is not allowed here");
}

TEST(AValue, WithAMarkOrReferenceIsRefused) {
    EXPECT_EQ(readFailure("d81c 60"), "value expected");
    EXPECT_EQ(readFailure("d81d 00"), "value expected");
    EXPECT_EQ(readFailure("f7"), "value expected");
}

TEST(AValue, NestedToTheLimitIsWrittenAndRead) {
    const auto nested = [](std::size_t depth) {
        Value value = Array();
        for (std::size_t i = 1; i < depth; ++i) {
            value = Array{std::move(value)};
        }
        return value;
    };
    EXPECT_EQ(readFailure(written(nested(limits::kDepthMax))), "");
    EXPECT_EQ(written(nested(limits::kDepthMax + 1)), "nested too deeply");
    EXPECT_EQ(readFailure("81" + written(nested(limits::kDepthMax))), "nested too deeply");
}

TEST(AnError, PassesOverUnknownKeys) {
    Value value;
    EXPECT_EQ(readFailure("d81b 82 654572726f72 a3 64636f6465 01 6178 8100 66646f6d61696e 6144", &value), "");
    EXPECT_EQ(value, Value(Error("D", 1)));
}

TEST(AnError, WithoutDomainOrCodeIsRefused) {
    EXPECT_EQ(readFailure("d81b 82 654572726f72 a1 64636f6465 01"), "error without domain or code");
    EXPECT_EQ(readFailure("d81b 82 654572726f72 a1 66646f6d61696e 60"), "error without domain or code");
}

TEST(AnError, MayRestrictItsUserInformation) {
    constexpr auto kKinds =
        ValueKinds::Error | ValueKinds::Dictionary | ValueKinds::Array | ValueKinds::String | ValueKinds::Number;
    const auto failure = [](const Error& error) {
        Writer writer;
        writer.error(error);
        const Data bytes = *writer.take();
        DecodeBudget budget(bytes.size());
        Reader reader(bytes, budget);
        std::optional<Error> read;
        if (!reader.error(read, kKinds)) {
            return std::string(reader.failure().text);
        }
        EXPECT_EQ(read, error);
        return std::string();
    };
    EXPECT_EQ(failure(Error("D", 1, Dictionary{{"a", Array{1, "b", Error("C", 2)}}})), "");
    EXPECT_EQ(failure(Error("D", 1, Dictionary{{"a", Data{1}}})), "a value of this kind is not allowed here");
}

TEST(AnError, IsNotReadFromAnotherClass) {
    const Data bytes = fromHex("d81b 82 6444617465 a0");
    DecodeBudget budget(bytes.size());
    Reader reader(bytes, budget);
    std::optional<Error> error;
    EXPECT_FALSE(reader.error(error));
    EXPECT_EQ(reader.failure().code, FormatError::WrongClass);
}

TEST(ADate, WithoutSecondsIsRefused) {
    EXPECT_EQ(readFailure("d81b 82 6444617465 a0"), "date without seconds");
}

std::string urlFailure(std::string_view digits, std::optional<URL>* url = nullptr) {
    const Data bytes = fromHex(digits);
    DecodeBudget budget(bytes.size());
    Reader reader(bytes, budget);
    std::optional<URL> read;
    if (!reader.url(read) || !reader.end()) {
        return reader.failure().text;
    }
    EXPECT_EQ(budget.depth(), 0U);
    if (url != nullptr) {
        *url = std::move(read);
    }
    return "";
}

std::string written(const URL& url) {
    Writer writer;
    writer.url(url);
    return toHex(*writer.take());
}

TEST(AUrl, IsTaggedText) {
    EXPECT_EQ(written(*URL::fromString("a:b")),
              "d820"
              "63613a62");
}

TEST(AUrl, WithABaseIsAnObject) {
    const URL url = *URL::fromString("b", *URL::fromString("x:/a/"));
    EXPECT_EQ(written(url),
              "d81b"
              "82"
              "6355524c"
              "a2"
              "6872656c6174697665"
              "6162"
              "6462617365"
              "d820"
              "65783a2f612f");
    std::optional<URL> back;
    EXPECT_EQ(urlFailure(written(url), &back), "");
    EXPECT_EQ(back, url);
}

TEST(AUrl, ThatIsNoneIsRefused) {
    EXPECT_EQ(urlFailure("d820 6120"), "not a URL");
    EXPECT_EQ(urlFailure("6161"), "URL expected");
    EXPECT_EQ(urlFailure("d825 6161"), "URL expected");
    EXPECT_EQ(urlFailure("d81b 82 6455524c32 a0"), "URL expected");
    EXPECT_EQ(urlFailure("d81b 82 6355524c a1 6872656c6174697665 6162"), "URL without its text or base");
    EXPECT_EQ(urlFailure("d81b 82 6355524c a2 6872656c6174697665 6162 6872656c6174697665 6162"),
              "key occurs twice");
}

TEST(AUuid, IsSixteenTaggedBytes) {
    const UUID uuid = *UUID::fromString("00112233-4455-6677-8899-AABBCCDDEEFF");
    Writer writer;
    writer.uuid(uuid);
    EXPECT_EQ(toHex(*writer.take()),
              "d82550"
              "00112233445566778899aabbccddeeff");
}

TEST(AUuid, OfAnotherLengthIsRefused) {
    for (const char* digits :
         {"d8254f00112233445566778899aabbccddee", "d8255100112233445566778899aabbccddeeff00"}) {
        const Data bytes = fromHex(digits);
        DecodeBudget budget(bytes.size());
        Reader reader(bytes, budget);
        UUID uuid;
        EXPECT_FALSE(reader.uuid(uuid));
        EXPECT_STREQ(reader.failure().text, "UUID of 16 bytes expected");
    }
}

TEST(ACborWriter, AppendsToAPrefix) {
    Writer writer(Data{0xAA, 0xBB});
    writer.unsignedInteger(1);
    EXPECT_EQ(writer.size(), 3U);
    EXPECT_EQ(toHex(*writer.take()), "aabb01");
}

TEST(ACborWriter, KeepsItsFirstFailure) {
    Writer writer;
    writer.text("\xFF");
    writer.bytes(Data(limits::kStringMax + 1));
    EXPECT_FALSE(writer.ok());
    EXPECT_EQ(writer.status().error(), Error(FormatError::Unsupported, "text is not UTF-8"));
    EXPECT_FALSE(writer.take().ok());
}

TEST(ACborWriter, RefusesStringsThatNoReaderTakes) {
    Writer fits;
    fits.bytes(Data(limits::kStringMax));
    EXPECT_TRUE(fits.ok());
    Writer tooLong;
    tooLong.text(std::string(limits::kStringMax + 1, 'x'));
    EXPECT_EQ(tooLong.status().error(), Error(FormatError::LimitPassed, "text too long"));
}

}  // namespace
}  // namespace ksw::archive
