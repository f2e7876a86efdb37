#include <cmath>
#include <limits>

#include "tests/platform/plist/plist_support.h"

namespace ksw::plist {
namespace {

constexpr std::string_view kHere = "binary property list, object 0 at offset 8: ";

void expectObjectRefused(std::string object, FormatError code, std::string_view text) {
    expectRefused(readObject(std::move(object)), code, std::string(kHere).append(text));
}

TEST(ABinaryReader, ReadsBools) {
    EXPECT_EQ(valueOf(readObject(raw("\x08"))), Value(false));
    EXPECT_EQ(valueOf(readObject(raw("\x09"))), Value(true));
}

TEST(ABinaryReader, ReadsIntegersOfEachSize) {
    EXPECT_EQ(valueOf(readObject(raw("\x10\xFF"))), Value(255));
    EXPECT_EQ(valueOf(readObject(raw("\x11\xFF\xFE"))), Value(65534));
    EXPECT_EQ(valueOf(readObject(raw("\x12\xFF\xFF\xFF\xFF"))), Value(4294967295));
    EXPECT_EQ(valueOf(readObject(raw("\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"))), Value(-1));
    EXPECT_EQ(valueOf(readObject(raw("\x13\x80\0\0\0\0\0\0\0"))), Value(INT64_MIN));
    EXPECT_EQ(valueOf(readObject("\x14" + std::string(8, '\0') + std::string(8, '\xFF'))), Value(UINT64_MAX));
    EXPECT_EQ(valueOf(readObject("\x14" + std::string(15, '\0') + "\x05")), Value(5));
    EXPECT_EQ(valueOf(readObject("\x14" + std::string(16, '\xFF'))), Value(-1));
    EXPECT_EQ(valueOf(readObject("\x14" + std::string(8, '\xFF') + "\x80" + std::string(7, '\0'))),
              Value(INT64_MIN));
}

TEST(ABinaryReader, RefusesIntegersOneBeyondTheirRange) {
    expectObjectRefused("\x14" + std::string(7, '\0') + "\x01" + std::string(8, '\0'), FormatError::LimitPassed,
                        "integer out of range");
    expectObjectRefused("\x14" + std::string(8, '\xFF') + "\x7F" + std::string(7, '\xFF'), FormatError::LimitPassed,
                        "integer out of range");
}

TEST(ABinaryReader, ReadsRealsOfBothSizes) {
    EXPECT_EQ(valueOf(readObject(raw("\x22\x3F\xC0\0\0"))), Value(1.5));
    EXPECT_EQ(valueOf(readObject(raw("\x23\xBF\xF8\0\0\0\0\0\0"))), Value(-1.5));
    const Value nan = valueOf(readObject(raw("\x23\x7F\xF8\0\0\0\0\0\0")));
    ASSERT_NE(nan.as<double>(), nullptr);
    EXPECT_TRUE(std::isnan(*nan.as<double>()));
}

TEST(ABinaryReader, ReadsDatesWithFractions) {
    EXPECT_EQ(valueOf(readObject(raw("\x33\x3F\xE0\0\0\0\0\0\0"))), Value(Date{0.5}));
}

TEST(ABinaryReader, RefusesADateThatIsNotAFiniteNumber) {
    for (const char* const bits : {"\x7F\xF8", "\x7F\xF0", "\xFF\xF0"}) {
        expectObjectRefused("\x33" + std::string(bits) + std::string(6, '\0'), FormatError::Malformed,
                            "a date that is not a finite number");
    }
}

TEST(ABinaryReader, ReadsDataAndTextWithCountsOfEachSize) {
    EXPECT_EQ(valueOf(readObject(raw("\x42\0\xFF"))), Value(Data{0, 0xFF}));
    EXPECT_EQ(valueOf(readObject(raw("\x40"))), Value(Data()));
    EXPECT_EQ(valueOf(readObject(raw("\x53"
                                     "abc"))),
              Value("abc"));
    EXPECT_EQ(valueOf(readObject(raw("\x5F\x10\x02"
                                     "ab"))),
              Value("ab"));
    EXPECT_EQ(valueOf(readObject(raw("\x5F\x11\0\x02"
                                     "ab"))),
              Value("ab"));
    EXPECT_EQ(valueOf(readObject(raw("\x5F\x12\0\0\0\x02"
                                     "ab"))),
              Value("ab"));
    EXPECT_EQ(valueOf(readObject(raw("\x5F\x13\0\0\0\0\0\0\0\x02"
                                     "ab"))),
              Value("ab"));
}

TEST(ABinaryReader, ReadsUtf16) {
    EXPECT_EQ(valueOf(readObject(raw("\x64\0A\0\xE4\xD8\x3E\xDD\x85"))), Value("A\xC3\xA4\xF0\x9F\xA6\x85"));
    EXPECT_EQ(valueOf(readObject(raw("\x62\xFF\xFF\0\0"))), Value(std::string("\xEF\xBF\xBF\0", 4)));
}

TEST(ABinaryReader, RefusesHalfASurrogatePair) {
    for (const std::string& units : {raw("\x61\xD8\x3E"), raw("\x61\xDD\x85"), raw("\x62\xD8\x3E\0A"),
                                     raw("\x62\xD8\x3E\xD8\x3E"), raw("\x62\xDD\x85\xD8\x3E")}) {
        expectObjectRefused(units, FormatError::Malformed, "half a surrogate pair");
    }
}

TEST(ABinaryReader, RefusesBytesBeyondAsciiInAscii) {
    expectObjectRefused(raw("\x52\xC3\xA4"), FormatError::Malformed, "a byte beyond ASCII in ASCII text");
}

TEST(ABinaryReader, RefusesWhatHasNoValue) {
    expectObjectRefused(raw("\0"), FormatError::Unsupported, "nothing has no value in a property list");
    expectObjectRefused(raw("\x0F"), FormatError::Unsupported, "a fill byte has no value");
    expectObjectRefused(raw("\x80\x01"), FormatError::Unsupported, "an archive's reference has no value");
    expectObjectRefused(raw("\xB0"), FormatError::Unsupported, "a set has no value");
    expectObjectRefused(raw("\xC0"), FormatError::Unsupported, "a set has no value");
}

TEST(ABinaryReader, RefusesUnknownKinds) {
    for (const char byte : {'\x01', '\x0C', '\x0E', '\x15', '\x1F', '\x20', '\x21', '\x24', '\x30', '\x32', '\x34',
                            '\x70', '\x90', '\xE0', '\xF0'}) {
        expectObjectRefused(std::string(1, byte) + std::string(64, '\0'), FormatError::Malformed,
                            "unknown kind of object");
    }
}

TEST(ABinaryReader, RefusesEachObjectThatIsCutOff) {
    for (const std::string& object :
         {raw("\x10\x01"), raw("\x13\0\0\0\0\0\0\0\x01"), "\x14" + std::string(16, '\0'), raw("\x22\0\0\0\0"),
          raw("\x23\0\0\0\0\0\0\0\0"), raw("\x33\0\0\0\0\0\0\0\0"), raw("\x42\0\0"),
          raw("\x52"
              "ab"),
          raw("\x62\0A\0B"),
          raw("\x5F\x11\0\x02"
              "ab")}) {
        ASSERT_TRUE(readObject(object).ok());
        for (std::size_t length = 1; length < object.size(); ++length) {
            expectObjectRefused(object.substr(0, length), FormatError::Malformed, "cut off");
        }
    }
}

TEST(ABinaryReader, RefusesCountsThatAreNoIntegersOrTooLarge) {
    expectObjectRefused(raw("\x5F\x22\0\0\0\0"), FormatError::Malformed, "a count that is not an integer");
    expectObjectRefused("\x5F\x14" + std::string(16, '\0'), FormatError::Malformed,
                        "a count that is not an integer");
    expectObjectRefused("\x5F\x13" + std::string(8, '\xFF'), FormatError::Malformed, "cut off");
    expectObjectRefused("\x6F\x13\x80" + std::string(7, '\0'), FormatError::Malformed, "cut off");
    expectObjectRefused("\xDF\x13" + std::string(8, '\xFF'), FormatError::Malformed, "cut off");
}

TEST(ABinaryReader, ReadsContainersWithReferencesOfEachSize) {
    for (std::uint8_t size = 1; size <= 8; ++size) {
        BinaryList list;
        list.referenceSize = size;
        list.offsetSize = size;
        list.objects = {"\xD1" + BinaryList::number(1, size) + BinaryList::number(2, size), "\x51k",
                        "\xA2" + BinaryList::number(3, size) + BinaryList::number(3, size), "\x09"};
        EXPECT_EQ(valueOf(list.read()), Value(Dictionary{{"k", Array{true, true}}})) << int{size};
    }
}

TEST(ABinaryReader, ReadsEmptyContainers) {
    EXPECT_EQ(valueOf(readObject(raw("\xA0"))), Value(Array()));
    EXPECT_EQ(valueOf(readObject(raw("\xD0"))), Value(Dictionary()));
}

TEST(ABinaryReader, ReadsARootThatIsNotTheFirstObject) {
    BinaryList list;
    list.objects = {"\x09", "\x08", raw("\xA2\0\x01")};
    list.root = 2;
    EXPECT_EQ(valueOf(list.read()), Value(Array{true, false}));
}

TEST(ABinaryReader, GivesEachPlaceACopyOfWhatIsShared) {
    BinaryList list;
    list.objects = {raw("\xA2\x01\x01"), raw("\xA1\x02"), "\x51z"};
    EXPECT_EQ(valueOf(list.read()), Value(Array{Array{"z"}, Array{"z"}}));
}

TEST(ABinaryReader, RefusesAReferenceToNoObject) {
    BinaryList list;
    list.objects = {raw("\xA1\x02"), raw("\x09")};
    expectRefused(list.read(), FormatError::Malformed, "a reference to no object");
}

TEST(ABinaryReader, RefusesAContainerThatContainsItself) {
    expectObjectRefused(raw("\xA1\0"), FormatError::Malformed, "a container that contains itself");
    BinaryList list;
    list.objects = {raw("\xA1\x01"), raw("\xD1\x02\0"), "\x51k"};
    expectRefused(list.read(), FormatError::Malformed, "object 0 at offset 8: a container that contains itself");
}

TEST(ABinaryReader, RefusesKeysThatAreNotStrings) {
    for (const std::string& key : {raw("\x10\x01"), raw("\x09"), raw("\x41k"), raw("\xA0")}) {
        BinaryList list;
        list.objects = {raw("\xD1\x01\x01"), key};
        expectRefused(list.read(), FormatError::WrongType, "object 1 at offset 11: a key that is not a string");
    }
}

TEST(ABinaryReader, RefusesADuplicateKey) {
    BinaryList list;
    list.objects = {raw("\xD2\x01\x02\x03\x03"), "\x51k", raw("\x61\0k"), "\x09"};
    expectRefused(list.read(), FormatError::Malformed, "object 2 at offset 15: duplicate key");
}

}  // namespace
}  // namespace ksw::plist
