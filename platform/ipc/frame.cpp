#include "platform/ipc/frame.h"

#include <algorithm>

#include "platform/base/text.h"
#include "platform/ipc/other_version.h"

namespace ksw::ipc {

namespace {

constexpr std::size_t kVersionOffset = 4;
constexpr std::size_t kKindOffset = 5;
constexpr std::size_t kZeroOffset = 6;
constexpr std::size_t kLengthOffset = 8;
constexpr std::size_t kSerialOffset = 12;

void writeNumber(std::uint32_t number, std::uint8_t* destination) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        *destination++ = static_cast<std::uint8_t>(number >> static_cast<unsigned>(shift));
    }
}

std::uint32_t readNumber(const std::uint8_t* source) {
    return (std::uint32_t{source[0]} << 24U) | (std::uint32_t{source[1]} << 16U) |
           (std::uint32_t{source[2]} << 8U) | std::uint32_t{source[3]};
}

bool isKnownKind(std::uint8_t kind) {
    return kind >= static_cast<std::uint8_t>(FrameKind::Request) &&
           kind <= static_cast<std::uint8_t>(FrameKind::Refusal);
}

}  // namespace

void writeHeader(const FrameHeader& header, std::span<std::uint8_t, kHeaderSize> destination) {
    std::copy(kMagic.begin(), kMagic.end(), destination.begin());
    destination[kVersionOffset] = kVersion;
    destination[kKindOffset] = static_cast<std::uint8_t>(header.kind);
    destination[kZeroOffset] = 0;
    destination[kZeroOffset + 1] = 0;
    writeNumber(header.length, destination.data() + kLengthOffset);
    writeNumber(header.serial, destination.data() + kSerialOffset);
}

Result<FrameHeader> readHeader(std::span<const std::uint8_t, kHeaderSize> bytes, std::size_t bodyMax) {
    if (!std::equal(kMagic.begin(), kMagic.end(), bytes.begin())) {
        return Error(FormatError::Malformed, "frame: wrong magic");
    }
    if (bytes[kVersionOffset] != kVersion) {
        return Error(FormatError::Malformed, versionsDiffer(bytes[kVersionOffset]));
    }
    if (!isKnownKind(bytes[kKindOffset])) {
        return Error(FormatError::Malformed, format("frame: unknown kind %d", bytes[kKindOffset]));
    }
    if (bytes[kZeroOffset] != 0 || bytes[kZeroOffset + 1] != 0) {
        return Error(FormatError::Malformed, "frame: the reserved bytes are not zero");
    }
    const FrameHeader header{static_cast<FrameKind>(bytes[kKindOffset]), readNumber(bytes.data() + kLengthOffset),
                             readNumber(bytes.data() + kSerialOffset)};
    if (header.length > bodyMax) {
        return Error(FormatError::LimitPassed,
                     format("frame: a body of %ld bytes, at most %ld are allowed", header.length, bodyMax));
    }
    return header;
}

Result<FrameSearch> findFrame(Bytes buffer, std::size_t bodyMax) {
    if (buffer.size() < kHeaderSize) {
        return FrameSearch{std::nullopt, kHeaderSize - buffer.size()};
    }
    Result<FrameHeader> header = readHeader(buffer.first<kHeaderSize>(), bodyMax);
    if (!header) {
        return header.error();
    }
    const std::size_t arrived = buffer.size() - kHeaderSize;
    if (arrived < header->length) {
        return FrameSearch{std::nullopt, header->length - arrived};
    }
    return FrameSearch{Frame{*header, buffer.subspan(kHeaderSize, header->length)}, 0};
}

}  // namespace ksw::ipc
