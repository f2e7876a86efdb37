#include <kestrelwood/values/uuid.h>

#include <cerrno>
#include <cstdlib>

#include <sys/random.h>

#include "platform/base/hex.h"

namespace ksw {

namespace {

constexpr std::size_t kTextLength = 36;

constexpr bool hasHyphenAt(std::size_t position) {
    return position == 8 || position == 13 || position == 18 || position == 23;
}

}  // namespace

UUID UUID::random() {
    UUID uuid;
    // Up to 256 bytes come whole or not at all once the random source is ready.
    while (::getrandom(uuid.bytes.data(), uuid.bytes.size(), 0) != static_cast<ssize_t>(uuid.bytes.size())) {
        if (errno != EINTR) {
            std::abort();
        }
    }
    uuid.bytes[6] = static_cast<std::uint8_t>((uuid.bytes[6] & 0x0FU) | 0x40U);
    uuid.bytes[8] = static_cast<std::uint8_t>((uuid.bytes[8] & 0x3FU) | 0x80U);
    return uuid;
}

std::optional<UUID> UUID::fromString(std::string_view text) {
    if (text.size() != kTextLength) {
        return std::nullopt;
    }
    UUID uuid;
    std::size_t digits = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (hasHyphenAt(i)) {
            if (text[i] != '-') {
                return std::nullopt;
            }
            continue;
        }
        const int digit = hexDigitValue(text[i]);
        if (digit < 0) {
            return std::nullopt;
        }
        std::uint8_t& byte = uuid.bytes[digits / 2];
        byte = static_cast<std::uint8_t>(byte * 16 + digit);
        ++digits;
    }
    return uuid;
}

std::string UUID::string() const {
    std::string text;
    text.reserve(kTextLength);
    for (std::uint8_t byte : bytes) {
        if (hasHyphenAt(text.size())) {
            text += '-';
        }
        text += kUpperHexDigits[byte >> 4U];
        text += kUpperHexDigits[byte & 0xFU];
    }
    return text;
}

}  // namespace ksw
