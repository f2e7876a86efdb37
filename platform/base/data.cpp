#include <kestrelwood/values/data.h>

#include <algorithm>

#include "platform/base/hex.h"

namespace ksw {

namespace {
constexpr std::size_t kBytesShownMax = 24;
}

std::string describe(Bytes bytes) {
    std::string text = "{length = " + std::to_string(bytes.size()) + ", bytes = 0x";
    for (std::uint8_t byte : bytes.first(std::min(bytes.size(), kBytesShownMax))) {
        text += kLowerHexDigits[byte >> 4U];
        text += kLowerHexDigits[byte & 0xFU];
    }
    text += bytes.size() > kBytesShownMax ? " ...}" : "}";
    return text;
}

}  // namespace ksw
