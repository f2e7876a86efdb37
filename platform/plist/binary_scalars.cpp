// The objects of a binary property list that contain no others.
#include <algorithm>
#include <bit>
#include <cmath>

#include "platform/base/utf8.h"
#include "platform/plist/binary_reader.h"

namespace ksw::plist {
namespace {

/// An integer's size, as a power of two, beyond which it has a sign.
constexpr std::uint8_t kSignedFrom = 3;
constexpr std::uint8_t kLargestInteger = 4;

bool isHigh(std::uint32_t unit) {
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLow(std::uint32_t unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

std::uint32_t unitAt(Bytes units, std::size_t index) {
    return (static_cast<std::uint32_t>(units[index]) << 8U) | units[index + 1];
}

/// The next character of UTF-16, and how many bytes it takes; absent for half a pair.
std::optional<char32_t> characterAt(Bytes units, std::size_t& index) {
    const std::uint32_t unit = unitAt(units, index);
    index += 2;
    if (!isHigh(unit) && !isLow(unit)) {
        return unit;
    }
    if (isLow(unit) || index == units.size() || !isLow(unitAt(units, index))) {
        return std::nullopt;
    }
    const std::uint32_t low = unitAt(units, index);
    index += 2;
    return 0x10000 + ((unit & 0x3FFU) << 10U) + (low & 0x3FFU);
}

}  // namespace

Check BinaryReader::readInteger(const Head& head) {
    const std::size_t size = std::size_t{1} << head.low;
    if (head.low > kLargestInteger) {
        return kUnknownObject;
    }
    const Bytes rest = layout_.objects().subspan(head.content);
    if (size > rest.size()) {
        return kCutOff;
    }
    if (head.low < kSignedFrom) {
        return builder_.scalar(bigEndian(rest.first(size)));
    }
    const std::uint64_t low = bigEndian(rest.subspan(size - 8, 8));
    if (head.low == kSignedFrom) {
        return builder_.scalar(static_cast<std::int64_t>(low));
    }
    const std::uint64_t high = bigEndian(rest.first(8));
    if (high == 0) {
        return builder_.scalar(low);
    }
    const auto number = static_cast<std::int64_t>(low);
    return high == UINT64_MAX && number < 0 ? builder_.scalar(number) : Check(kIntegerRange);
}

Check BinaryReader::readReal(const Head& head) {
    const std::size_t size = std::size_t{1} << head.low;
    if (size != sizeof(float) && size != sizeof(double)) {
        return kUnknownObject;
    }
    const Bytes rest = layout_.objects().subspan(head.content);
    if (size > rest.size()) {
        return kCutOff;
    }
    const std::uint64_t bits = bigEndian(rest.first(size));
    if (size == sizeof(float)) {
        return builder_.scalar(static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bits))));
    }
    return builder_.scalar(std::bit_cast<double>(bits));
}

Check BinaryReader::readDate(const Head& head) {
    if (head.low != (kDateByte & 0xFU)) {
        return kUnknownObject;
    }
    const Bytes rest = layout_.objects().subspan(head.content);
    if (rest.size() < sizeof(double)) {
        return kCutOff;
    }
    const double seconds = std::bit_cast<double>(bigEndian(rest.first(sizeof(double))));
    if (!std::isfinite(seconds)) {
        return Complaint{FormatError::Malformed, "a date that is not a finite number"};
    }
    return builder_.scalar(Date{seconds});
}

Check BinaryReader::readData(const Head& head) {
    Bytes content;
    if (auto check = count(head, 1, content)) {
        return check;
    }
    if (content.size() > limits::kStringMax) {
        return kTooLong;
    }
    if (!budget_.takeHeap(content.size())) {
        return kTooMuchHeap;
    }
    return builder_.scalar(Data(content.begin(), content.end()));
}

/// A string, as the pending key when one is wanted.
Check BinaryReader::readText(const Head& head) {
    const bool isAscii = head.marker == Marker::Ascii;
    Bytes content;
    if (auto check = count(head, isAscii ? 1 : 2, content)) {
        return check;
    }
    std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
    if (isAscii) {
        if (std::any_of(content.begin(), content.end(), [](std::uint8_t byte) { return byte >= 0x80; })) {
            return Complaint{FormatError::Malformed, "a byte beyond ASCII in ASCII text"};
        }
    } else {
        if (auto check = readUtf16(content)) {
            return check;
        }
        text = scratch_;
    }
    return builder_.wantsKey() ? builder_.key(text) : builder_.text(text);
}

/// Leaves the text in `scratch_`.
Check BinaryReader::readUtf16(Bytes units) {
    constexpr std::size_t kBytesPerUnitMax = 3;
    scratch_.clear();
    if (!budget_.makeRoom(scratch_, units.size() / 2 * kBytesPerUnitMax)) {
        return kTooMuchHeap;
    }
    for (std::size_t index = 0; index < units.size();) {
        const auto character = characterAt(units, index);
        if (!character) {
            return Complaint{FormatError::Malformed, "half a surrogate pair"};
        }
        appendUtf8(scratch_, *character);
    }
    return {};
}

}  // namespace ksw::plist
