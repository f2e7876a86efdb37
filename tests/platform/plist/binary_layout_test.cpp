#include "tests/platform/plist/plist_support.h"

namespace ksw::plist {
namespace {

/// Offsets of the trailer's parts from the end.
constexpr std::size_t kOffsetSizeAt = 26;
constexpr std::size_t kReferenceSizeAt = 25;
constexpr std::size_t kCountAt = 24;
constexpr std::size_t kRootAt = 16;
constexpr std::size_t kTableAt = 8;

/// A list of one bool.
std::string smallList() {
    BinaryList list;
    list.objects = {"\x09"};
    return list.bytes();
}

Result<Value> readWith(std::size_t fromEnd, std::string_view bytes) {
    std::string list = smallList();
    list.replace(list.size() - fromEnd, bytes.size(), bytes);
    return readBinary(bytesOf(list));
}

TEST(ABinaryLayout, IsRefusedForAnotherMagic) {
    expectRefused(readBinary(bytesOf("")), FormatError::Malformed, "offset 0: not the magic");
    expectRefused(readBinary(bytesOf("bplist0")), FormatError::Unsupported, "offset 6: another version");
    BinaryList list;
    list.objects = {"\x09"};
    list.magic = "bplist15";
    expectRefused(list.read(), FormatError::Unsupported, "offset 6: another version");
    list.magic = "cplist00";
    expectRefused(list.read(), FormatError::Malformed, "offset 0: not the magic");
}

TEST(ABinaryLayout, IsRefusedAtEachLengthButItsOwn) {
    const std::string whole = smallList();
    ASSERT_TRUE(readBinary(bytesOf(whole)).ok());
    for (std::size_t length = 8; length < whole.size(); ++length) {
        const auto result = readBinary(bytesOf(whole.substr(0, length)));
        ASSERT_FALSE(result.ok()) << length;
        EXPECT_NE(result.error().localizedDescription().find("trailer: "), std::string_view::npos) << length;
    }
    EXPECT_FALSE(readBinary(bytesOf(whole + "x")).ok());
}

TEST(ABinaryLayout, HasOffsetsAndReferencesOfOneToEightBytes) {
    constexpr std::string_view kText = "trailer: sizes of offsets and references are 1 to 8";
    for (const std::string& size : {raw("\0"), raw("\x09"), raw("\xFF")}) {
        expectRefused(readWith(kOffsetSizeAt, size), FormatError::Malformed, kText);
        expectRefused(readWith(kReferenceSizeAt, size), FormatError::Malformed, kText);
    }
    EXPECT_TRUE(readWith(kReferenceSizeAt, "\x08").ok());
}

TEST(ABinaryLayout, HasItsRootAmongItsObjects) {
    constexpr std::string_view kText = "trailer: the root is not one of the objects";
    expectRefused(readWith(kRootAt, raw("\0\0\0\0\0\0\0\x01")), FormatError::Malformed, kText);
    expectRefused(readWith(kRootAt, std::string(8, '\xFF')), FormatError::Malformed, kText);
    expectRefused(readWith(kCountAt, std::string(8, '\0')), FormatError::Malformed, kText);
}

TEST(ABinaryLayout, HasItsTableRightBeforeTheTrailer) {
    constexpr std::string_view kText = "trailer: the table of offsets does not end at the trailer";
    for (const std::string& start : {raw("\0\0\0\0\0\0\0\x08"), raw("\0\0\0\0\0\0\0\x0A"),
                                     raw("\0\0\0\0\0\0\0\x05"), std::string(8, '\xFF'), std::string(8, '\0')}) {
        expectRefused(readWith(kTableAt, start), FormatError::Malformed, kText);
    }
    expectRefused(readWith(kCountAt, raw("\0\0\0\0\0\0\0\x02")), FormatError::Malformed, kText);
}

TEST(ABinaryLayout, HasNoTableInsideTheMagic) {
    // Two objects, whose offsets would stand in the last three bytes of the magic and the first one behind it.
    BinaryList list;
    std::string bytes = list.finish(list.magic, "", 2);
    bytes.replace(bytes.size() - 8, 8, raw("\0\0\0\0\0\0\0\x04"));
    expectRefused(readBinary(bytesOf(bytes)), FormatError::Malformed,
                  "trailer: the table of offsets does not end at the trailer");
}

TEST(ABinaryLayout, HasItsObjectsBetweenMagicAndTable) {
    for (const std::string& offset : {raw("\0\x07"), raw("\0\0"), raw("\0\x09"), raw("\xFF\xFF")}) {
        BinaryList list;
        const auto result = readBinary(bytesOf(list.finish(list.magic + "\x09", offset, 1)));
        expectRefused(result, FormatError::Malformed, "the offset lies outside the objects");
    }
}

TEST(ABinaryLayout, MayHaveGapsBetweenItsObjects) {
    BinaryList list;
    list.objects = {"\x09"};
    list.behindObjects = "unused";
    EXPECT_TRUE(list.read().ok());
}

TEST(ABinaryLayout, DecidesHowBytesAreRead) {
    EXPECT_EQ(formatOf(bytesOf("bplist00")), Format::Binary);
    EXPECT_EQ(formatOf(bytesOf("bplist0")), Format::Xml);
    EXPECT_EQ(formatOf(bytesOf("")), Format::Xml);
    EXPECT_EQ(valueOf(read(bytesOf(smallList()))), Value(true));
    EXPECT_EQ(valueOf(read(bytesOf(document("<true/>")))), Value(true));
}

}  // namespace
}  // namespace ksw::plist
