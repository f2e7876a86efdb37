#include "platform/archive/cbor_reader.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "platform/base/never_destroyed.h"
#include "platform/base/utf8.h"

namespace ksw::archive {

namespace {

constexpr const char* kTruncated = "cut short";
constexpr const char* kIndefinite = "indefinite length";
constexpr const char* kReserved = "not CBOR";
constexpr const char* kNotShortest = "not in shortest form";
constexpr unsigned kIndefiniteInfo = 31;

/// The least number that needs a head of this many bytes.
constexpr std::uint64_t leastOf(unsigned size) {
    return size == 1 ? 24 : size == 2 ? 0x100 : size == 4 ? 0x1'0000 : 0x1'0000'0000;
}

double fromHalf(std::uint64_t bits) {
    const int exponent = static_cast<int>(bits >> 10U & 31U);
    const auto mantissa = static_cast<double>(bits & 1023U);
    double value = 0;
    if (exponent == 31) {
        value = mantissa == 0 ? std::numeric_limits<double>::infinity() : std::numeric_limits<double>::quiet_NaN();
    } else {
        value = exponent == 0 ? std::ldexp(mantissa, -24) : std::ldexp(mantissa + 1024, exponent - 25);
    }
    return (bits & 0x8000U) != 0 ? -value : value;
}

}  // namespace

const Error& outOfMemoryError() {
    static NeverDestroyed<Error> error(FormatError::LimitPassed, "no memory");
    return *error;
}

Error Reader::error(std::string_view place) const {
    return {failure_.code, std::string(place) + ": " + failure_.text};
}

bool Reader::fail(FormatError code, const char* text) {
    if (ok()) {
        failure_ = {code, text};
        cursor_ = end_;
    }
    return false;
}

bool Reader::wrongItem(const char* expected) {
    if (cursor_ == end_) {
        return fail(FormatError::Malformed, kTruncated);
    }
    const unsigned info = *cursor_ & 31U;
    if (info == kIndefiniteInfo) {
        return fail(FormatError::Malformed, kIndefinite);
    }
    return info >= 28 ? fail(FormatError::Malformed, kReserved) : fail(FormatError::WrongType, expected);
}

/// The number in the `size` bytes behind the first one, which are taken with it.
bool Reader::number(std::uint8_t size, std::uint64_t& value) {
    if (remaining() < 1U + size) {
        return fail(FormatError::Malformed, kTruncated);
    }
    value = 0;
    for (unsigned i = 1; i <= size; ++i) {
        value = value << 8U | cursor_[i];
    }
    cursor_ += 1U + size;
    return true;
}

bool Reader::longHead(std::uint64_t& argument) {
    const unsigned info = *cursor_ & 31U;
    if (info >= 28) {
        return fail(FormatError::Malformed, info == kIndefiniteInfo ? kIndefinite : kReserved);
    }
    const auto size = static_cast<std::uint8_t>(1U << (info - 24));
    if (!number(size, argument)) {
        return false;
    }
    return argument >= leastOf(size) || fail(FormatError::Malformed, kNotShortest);
}

ItemKind Reader::peek() const {
    if (cursor_ == end_) {
        return ItemKind::End;
    }
    switch (static_cast<Major>(*cursor_ >> 5U)) {
        case Major::Unsigned:
            return ItemKind::Unsigned;
        case Major::Negative:
            return ItemKind::Negative;
        case Major::Bytes:
            return ItemKind::Bytes;
        case Major::Text:
            return ItemKind::Text;
        case Major::Array:
            return ItemKind::Array;
        case Major::Map:
            return ItemKind::Map;
        case Major::Tag:
            return ItemKind::Tag;
        case Major::Simple:
            break;
    }
    switch (*cursor_) {
        case kFalseByte:
        case kTrueByte:
            return ItemKind::Boolean;
        case kNullByte:
            return ItemKind::Null;
        case kHalfByte:
        case kSingleByte:
        case kDoubleByte:
            return ItemKind::Real;
        default:
            return ItemKind::Other;
    }
}

bool Reader::integer(std::int64_t& value) {
    constexpr const char* kExpected = "integer expected";
    const bool isNegative = cursor_ != end_ && *cursor_ >> 5U == static_cast<unsigned>(Major::Negative);
    std::uint64_t argument = 0;
    if (!head(isNegative ? Major::Negative : Major::Unsigned, argument, kExpected)) {
        return false;
    }
    if (argument > static_cast<std::uint64_t>(INT64_MAX)) {
        return fail(FormatError::WrongType, "integer out of range");
    }
    value = static_cast<std::int64_t>(isNegative ? ~argument : argument);
    return true;
}

bool Reader::boolean(bool& value) {
    if (peek() != ItemKind::Boolean) {
        return wrongItem("bool expected");
    }
    value = *cursor_++ == kTrueByte;
    return true;
}

bool Reader::null() {
    if (!nextIsNull()) {
        return wrongItem("null expected");
    }
    ++cursor_;
    return true;
}

bool Reader::real(double& value) {
    std::uint64_t bits = 0;
    if (peek() != ItemKind::Real) {
        return wrongItem("real expected");
    }
    const std::uint8_t first = *cursor_;
    if (!number(static_cast<std::uint8_t>(first == kDoubleByte ? 8 : first == kSingleByte ? 4 : 2), bits)) {
        return false;
    }
    if (first == kDoubleByte) {
        value = std::bit_cast<double>(bits);
    } else if (first == kSingleByte) {
        value = static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(bits)));
    } else {
        value = fromHalf(bits);
    }
    return true;
}

bool Reader::string(Major major, const char* expected, const char* tooLong, std::size_t sizeMax, Bytes& bytes) {
    std::uint64_t size = 0;
    if (!head(major, size, expected)) {
        return false;
    }
    if (size > std::min(sizeMax, limits::kStringMax)) {
        return fail(FormatError::LimitPassed, tooLong);
    }
    if (size > remaining()) {
        return fail(FormatError::Malformed, kTruncated);
    }
    bytes = Bytes(cursor_, static_cast<std::size_t>(size));
    cursor_ += size;
    return true;
}

bool Reader::text(std::string_view& text, std::size_t sizeMax) {
    Bytes bytes;
    if (!string(Major::Text, "text expected", "text too long", sizeMax, bytes)) {
        return false;
    }
    text = {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
    return isUtf8(text) || fail(FormatError::Malformed, "text is not UTF-8");
}

bool Reader::text(std::string& into, std::size_t sizeMax) {
    constexpr std::size_t kInPlace = 15;  // what a std::string holds without heap
    std::string_view view;
    if (!text(view, sizeMax) || (view.size() > kInPlace && !chargeHeap(view.size() + 1))) {
        return false;
    }
    into.assign(view);
    return true;
}

bool Reader::bytes(Bytes& bytes, std::size_t sizeMax) {
    return string(Major::Bytes, "byte string expected", "byte string too long", sizeMax, bytes);
}

bool Reader::bytes(Data& into, std::size_t sizeMax) {
    Bytes view;
    if (!bytes(view, sizeMax) || !chargeHeap(view.size())) {
        return false;
    }
    into.assign(view.begin(), view.end());
    return true;
}

bool Reader::enter(Major major, const char* expected, std::size_t bytesAnElement, std::size_t& count) {
    std::uint64_t declared = 0;
    if (!head(major, declared, expected)) {
        return false;
    }
    if (declared > remaining() / bytesAnElement) {
        return fail(FormatError::Malformed, "more elements than bytes");
    }
    count = static_cast<std::size_t>(declared);
    return budget_->enter() || fail(FormatError::LimitPassed, "nested too deeply");
}

bool Reader::enterArray(std::size_t& count) {
    return enter(Major::Array, "array expected", 1, count);
}

bool Reader::enterMap(std::size_t& count) {
    return enter(Major::Map, "map expected", 2, count);
}

bool Reader::tag(std::uint64_t tag, const char* expected) {
    std::uint64_t found = 0;
    if (!head(Major::Tag, found, expected)) {
        return false;
    }
    return found == tag || fail(FormatError::WrongType, expected);
}

bool Reader::enterObject(std::string_view& className, std::size_t& keys) {
    std::size_t parts = 0;
    if (!enterArray(parts)) {
        return false;
    }
    if (parts != 2) {
        return fail(FormatError::Malformed, "object is not a name and a map");
    }
    return text(className) && enterMap(keys);
}

bool Reader::countMark(std::uint32_t& number) {
    if (!budget_->takeSharedReference()) {
        return fail(FormatError::LimitPassed, "too many shared references");
    }
    number = marks_++;
    return true;
}

bool Reader::end() {
    return (ok() && cursor_ == end_) || fail(FormatError::Malformed, "bytes behind the end");
}

}  // namespace ksw::archive
