// Passing over what a reader does not know, level by level without recursion.
#include <array>

#include "platform/archive/cbor_reader.h"

namespace ksw::archive {

bool Reader::skip() {
    std::array<std::uint64_t, limits::kDepthMax + 1> left{};  // items that are still to come, level by level
    std::size_t level = 0;
    left[0] = 1;
    for (;;) {
        while (left[level] == 0) {
            if (level == 0) {
                return true;
            }
            leave();
            --level;
        }
        const std::size_t depth = budget_->depth();
        std::uint64_t inside = 0;
        --left[level];
        if (!skipOne(left[level], inside)) {
            return false;
        }
        if (budget_->depth() != depth) {
            left[++level] = inside;
        }
    }
}

/// Takes one item but not its elements: `inside` is how many items those are. The item behind a tag is added to
/// `pending`.
bool Reader::skipOne(std::uint64_t& pending, std::uint64_t& inside) {
    std::uint64_t number = 0;
    std::uint32_t mark = 0;
    std::size_t count = 0;
    std::string_view text;
    Bytes bytes;
    switch (peek()) {
        case ItemKind::Unsigned:
            return head(Major::Unsigned, number, "");
        case ItemKind::Negative:
            return head(Major::Negative, number, "");
        case ItemKind::Bytes:
            return this->bytes(bytes);
        case ItemKind::Text:
            return this->text(text);
        case ItemKind::Array:
        case ItemKind::Map: {
            const bool isMap = peek() == ItemKind::Map;
            const bool entered = isMap ? enterMap(count) : enterArray(count);
            inside = isMap ? 2 * std::uint64_t{count} : count;
            return entered;
        }
        case ItemKind::Tag:
            ++pending;
            return tag(number) && (number != kShareableTag || countMark(mark));
        case ItemKind::Boolean:
        case ItemKind::Null:
        case ItemKind::Real:
        case ItemKind::Other:
            return skipSimple();
        case ItemKind::End:
            break;
    }
    return wrongItem("");
}

bool Reader::skipSimple() {
    constexpr unsigned kOneByte = 24;
    constexpr std::uint64_t kLeastInOneByte = 32;
    const unsigned info = *cursor_ & 31U;
    std::uint64_t number = 0;
    if (info < kOneByte) {
        ++cursor_;
        return true;
    }
    if (info >= 28) {
        return wrongItem("");
    }
    const auto size = static_cast<std::uint8_t>(1U << (info - kOneByte));
    if (!this->number(size, number)) {
        return false;
    }
    return size > 1 || number >= kLeastInOneByte || fail(FormatError::Malformed, "not CBOR");
}

}  // namespace ksw::archive
