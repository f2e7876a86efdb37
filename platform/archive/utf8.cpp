#include "platform/archive/utf8.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ksw::archive {

namespace {

constexpr std::uint64_t kHighBits = 0x8080808080808080U;

std::uint64_t load(const char* bytes) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, sizeof(word));
    return word;
}

/// Whether the text, unless it is short, is ASCII as almost every one is. The last word may overlap the one before.
bool isAscii(std::string_view text) {
    constexpr std::size_t kWord = sizeof(std::uint64_t);
    if (text.size() < kWord) {
        return false;
    }
    std::uint64_t bits = load(text.data() + text.size() - kWord);
    for (std::size_t i = 0; i + kWord < text.size(); i += kWord) {
        bits |= load(text.data() + i);
    }
    return (bits & kHighBits) == 0;
}

/// The first byte that is not ASCII; `end` when there is none.
const char* skipAscii(const char* cursor, const char* end) {
    while (end - cursor >= 8 && (load(cursor) & kHighBits) == 0) {
        cursor += 8;
    }
    while (cursor != end && static_cast<unsigned char>(*cursor) < 0x80) {
        ++cursor;
    }
    return cursor;
}

/// How many bytes the character at `cursor` has that is not ASCII; 0 when it is not well-formed.
std::size_t longCharacter(const char* cursor, const char* end) {
    const auto at = [cursor](std::size_t index) { return static_cast<unsigned char>(cursor[index]); };
    const unsigned first = at(0);
    const std::size_t size = first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF5 ? 4 : 0;
    if (size == 0 || static_cast<std::size_t>(end - cursor) < size) {
        return 0;
    }
    const unsigned lowest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const unsigned highest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    if (at(1) < lowest || at(1) > highest) {
        return 0;
    }
    for (std::size_t i = 2; i < size; ++i) {
        if ((at(i) & 0xC0U) != 0x80) {
            return 0;
        }
    }
    return size;
}

}  // namespace

bool isUtf8(std::string_view text) {
    const char* const end = text.data() + text.size();
    if (isAscii(text)) {
        return true;
    }
    const char* cursor = skipAscii(text.data(), end);
    while (cursor != end) {
        const std::size_t size = longCharacter(cursor, end);
        if (size == 0) {
            return false;
        }
        cursor = skipAscii(cursor + size, end);
    }
    return true;
}

}  // namespace ksw::archive
