#include <gtest/gtest.h>

#include "platform/base/limits.h"
#include "platform/ipc/frame.h"

namespace ksw::ipc {
namespace {

using Header = std::array<std::uint8_t, kHeaderSize>;

// The example of docs/wire.md.
constexpr Header kExample = {0x4B, 0x53, 0x57, 0x46, 0x01, 0x01, 0x00, 0x00,
                             0x00, 0x00, 0x00, 0x19, 0x00, 0x00, 0x00, 0x07};

Result<FrameHeader> readChanged(std::size_t place, std::uint8_t byte) {
    Header header = kExample;
    header[place] = byte;
    return readHeader(header, limits::kFrameBodyMax);
}

Header headerOfLength(std::uint32_t length) {
    Header header{};
    writeHeader({FrameKind::Reply, length, 1}, header);
    return header;
}

TEST(AHeader, HasTheDocumentedBytes) {
    Header header{};
    writeHeader({FrameKind::Request, 25, 7}, header);
    EXPECT_EQ(header, kExample);
}

TEST(AHeader, ReadsBackAsItWasWritten) {
    const FrameHeader written{FrameKind::Refusal, 0x01020304, 0xFFFEFDFC};
    Header header{};
    writeHeader(written, header);
    const Result<FrameHeader> read = readHeader(header, limits::kFrameBodyMax);
    ASSERT_TRUE(read.ok());
    EXPECT_EQ(*read, written);
}

TEST(AHeader, IsRefusedWithAWrongByteInEachFixedPlace) {
    for (std::size_t place = 0; place < 8; ++place) {
        const Result<FrameHeader> read = readChanged(place, 0x7F);
        ASSERT_FALSE(read.ok()) << place;
        EXPECT_EQ(read.error(), Error(FormatError::Malformed, read.error().localizedDescription())) << place;
    }
}

TEST(AHeader, KnowsThreeKindsAndNoOther) {
    for (int kind = 0; kind < 256; ++kind) {
        EXPECT_EQ(readChanged(5, static_cast<std::uint8_t>(kind)).ok(), kind >= 1 && kind <= 3) << kind;
    }
}

TEST(AHeader, MayPromiseTheLargestBodyAndNotOneByteMore) {
    const auto max = static_cast<std::uint32_t>(limits::kFrameBodyMax);
    EXPECT_TRUE(readHeader(headerOfLength(max), limits::kFrameBodyMax).ok());
    const Result<FrameHeader> read = readHeader(headerOfLength(max + 1), limits::kFrameBodyMax);
    ASSERT_FALSE(read.ok());
    EXPECT_EQ(read.error().code(), static_cast<std::int64_t>(FormatError::LimitPassed));
}

TEST(AFrame, IsFoundOnlyWhenItIsThereToItsLastByte) {
    Data buffer(kExample.begin(), kExample.end());
    buffer.resize(kHeaderSize + 25 + 3);
    for (std::size_t size = 0; size < kHeaderSize + 25; ++size) {
        const Result<FrameSearch> found = findFrame(Bytes(buffer).first(size), limits::kFrameBodyMax);
        ASSERT_TRUE(found.ok()) << size;
        EXPECT_FALSE(found->frame.has_value()) << size;
        EXPECT_EQ(found->bytesMissing, size < kHeaderSize ? kHeaderSize - size : kHeaderSize + 25 - size) << size;
    }
    const Result<FrameSearch> found = findFrame(buffer, limits::kFrameBodyMax);
    ASSERT_TRUE(found.ok());
    ASSERT_TRUE(found->frame.has_value());
    EXPECT_EQ(found->frame->body.size(), 25U);
    EXPECT_EQ(found->frame->size(), kHeaderSize + 25);
}

}  // namespace
}  // namespace ksw::ipc
