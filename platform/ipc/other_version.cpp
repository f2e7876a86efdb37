#include "platform/ipc/other_version.h"

#include <algorithm>
#include <span>

#include "platform/base/text.h"
#include "platform/ipc/body.h"
#include "platform/ipc/frame.h"

namespace ksw::ipc {

namespace {

constexpr std::size_t kVersionOffset = 4;
constexpr std::size_t kSerialOffset = 12;

std::uint32_t serialIn(Bytes header) {
    std::uint32_t serial = 0;
    for (const std::uint8_t byte : header.subspan(kSerialOffset, sizeof serial)) {
        serial = (serial << 8U) | byte;
    }
    return serial;
}

}  // namespace

std::string versionsDiffer(std::uint8_t theirs) {
    return format("frame: the peer speaks version %d of the wire, and this side version %d", theirs, kVersion);
}

std::optional<Data> refusalOfOtherVersion(Bytes buffer) {
    if (buffer.size() < kHeaderSize || !std::equal(kMagic.begin(), kMagic.end(), buffer.begin()) ||
        buffer[kVersionOffset] == kVersion) {
        return std::nullopt;
    }
    Data frame;
    if (!encodeRefusal(kOtherVersionRefusal, versionsDiffer(buffer[kVersionOffset]), frame)) {
        return std::nullopt;
    }
    const auto length = static_cast<std::uint32_t>(frame.size() - kHeaderSize);
    writeHeader({FrameKind::Refusal, length, serialIn(buffer)}, std::span(frame).first<kHeaderSize>());
    return frame;
}

}  // namespace ksw::ipc
