// frame.h: the fixed header in front of every body. Knows no descriptor and nothing of what a body says.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include <kestrelwood/values/data.h>

#include "platform/base/result.h"

namespace ksw::ipc {

/// Bytes of a header: magic (4), version (1), kind (1), zero (2), length of the body (4), serial (4); numbers in
/// network order.
inline constexpr std::size_t kHeaderSize = 16;
inline constexpr std::array<std::uint8_t, 4> kMagic = {'K', 'S', 'W', 'F'};
inline constexpr std::uint8_t kVersion = 1;

/// What a body is.
enum class FrameKind : std::uint8_t {
    Request = 1,  ///< [selector, [arguments]]
    Reply = 2,    ///< [arguments]
    Refusal = 3,  ///< [code, text]
};

struct FrameHeader {
    FrameKind kind = FrameKind::Request;
    std::uint32_t length = 0;  ///< Of the body, in bytes.
    std::uint32_t serial = 0;  ///< Chosen by the client, repeated in the answer.

    friend bool operator==(const FrameHeader&, const FrameHeader&) = default;
};

/// One frame in a buffer; borrows it.
struct Frame {
    FrameHeader header;
    Bytes body;

    std::size_t size() const { return kHeaderSize + body.size(); }
};

void writeHeader(const FrameHeader& header, std::span<std::uint8_t, kHeaderSize> destination);

/// Reads a header whose body may have at most `bodyMax` bytes. Error: Malformed, or LimitPassed for the length.
Result<FrameHeader> readHeader(std::span<const std::uint8_t, kHeaderSize> bytes, std::size_t bodyMax);

/// Finds the frame that begins a buffer. `frame` is absent while it has not arrived whole; then `bytesMissing`
/// says how many bytes it still needs, as far as one can tell. Errors as `readHeader`.
struct FrameSearch {
    std::optional<Frame> frame;
    std::size_t bytesMissing = 0;
};
Result<FrameSearch> findFrame(Bytes buffer, std::size_t bodyMax);

}  // namespace ksw::ipc
