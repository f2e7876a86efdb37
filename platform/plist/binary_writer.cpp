#include "platform/plist/binary_writer.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

#include "platform/base/limits.h"
#include "platform/base/utf8.h"
#include "platform/plist/binary_layout.h"

namespace ksw::plist {
namespace {

constexpr std::uint8_t firstByte(Marker marker, std::size_t low) {
    return static_cast<std::uint8_t>((static_cast<std::size_t>(marker) << 4U) | low);
}

/// The smallest of 1, 2, 4 and 8 bytes that hold the number, as a power of two.
std::uint8_t sizePower(std::uint64_t number) {
    return number <= UINT8_MAX ? 0 : number <= UINT16_MAX ? 1 : number <= UINT32_MAX ? 2 : 3;
}

template <class Out>
void appendNumber(Out& out, std::uint64_t number, std::size_t size) {
    for (std::size_t index = size; index-- > 0;) {
        out.push_back(static_cast<typename Out::value_type>(number >> (8U * index)));
    }
}

template <class Out>
void appendInteger(Out& out, std::uint64_t number, std::uint8_t power) {
    out.push_back(static_cast<typename Out::value_type>(firstByte(Marker::Integer, power)));
    appendNumber(out, number, std::size_t{1} << power);
}

template <class Out>
void appendHead(Out& out, Marker marker, std::size_t count) {
    const bool follows = count >= kCountFollows;
    out.push_back(static_cast<typename Out::value_type>(firstByte(marker, follows ? kCountFollows : count)));
    if (follows) {
        appendInteger(out, count, sizePower(count));
    }
}

/// Numbers of eight bytes have a sign; what is too large for that takes sixteen.
void appendUnsigned(std::string& out, std::uint64_t number) {
    constexpr std::uint8_t kSixteenBytes = 4;
    if (number <= static_cast<std::uint64_t>(INT64_MAX)) {
        appendInteger(out, number, sizePower(number));
        return;
    }
    out.push_back(static_cast<char>(firstByte(Marker::Integer, kSixteenBytes)));
    appendNumber(out, 0, 8);
    appendNumber(out, number, 8);
}

void appendSigned(std::string& out, std::int64_t number) {
    if (number >= 0) {
        appendUnsigned(out, static_cast<std::uint64_t>(number));
    } else {
        appendInteger(out, static_cast<std::uint64_t>(number), 3);
    }
}

void appendDouble(std::string& out, std::uint8_t first, double number) {
    out.push_back(static_cast<char>(first));
    appendNumber(out, std::bit_cast<std::uint64_t>(number), 8);
}

/// Text as UTF-16, one `char16_t` a unit; absent when it is not UTF-8.
std::optional<std::u16string> utf16(std::string_view text) {
    std::u16string units;
    units.reserve(text.size());
    for (std::size_t position = 0; position < text.size();) {
        const auto character = decodeUtf8(text, position);
        if (!character) {
            return std::nullopt;
        }
        if (*character < 0x10000) {
            units.push_back(static_cast<char16_t>(*character));
        } else {
            units.push_back(static_cast<char16_t>(0xD800 + ((*character - 0x10000) >> 10U)));
            units.push_back(static_cast<char16_t>(0xDC00 + (*character & 0x3FFU)));
        }
    }
    return units;
}

Check appendText(std::string& out, std::string_view text) {
    if (text.size() > limits::kStringMax) {
        return kTooLong;
    }
    if (std::all_of(text.begin(), text.end(), [](char byte) { return static_cast<unsigned char>(byte) < 0x80; })) {
        appendHead(out, Marker::Ascii, text.size());
        out += text;
        return {};
    }
    const auto units = utf16(text);
    if (!units) {
        return Complaint{FormatError::Unsupported, "text that is not UTF-8"};
    }
    appendHead(out, Marker::Utf16, units->size());
    for (const char16_t unit : *units) {
        appendNumber(out, unit, 2);
    }
    return {};
}

Check appendData(std::string& out, Bytes data) {
    if (data.size() > limits::kStringMax) {
        return kTooLong;
    }
    appendHead(out, Marker::Data, data.size());
    out.append(data.begin(), data.end());
    return {};
}

Check appendScalar(std::string& out, const Value& value) {
    if (const auto* text = value.as<std::string>()) {
        return appendText(out, *text);
    }
    if (const auto* data = value.as<Data>()) {
        return appendData(out, *data);
    }
    if (const auto* date = value.as<Date>()) {
        if (!std::isfinite(date->secondsSinceReference)) {
            return Complaint{FormatError::Unsupported, "a date that is not a finite number"};
        }
        appendDouble(out, kDateByte, date->secondsSinceReference);
    } else if (const auto* number = value.as<double>()) {
        appendDouble(out, kDoubleByte, *number);
    } else if (const auto* truth = value.as<bool>()) {
        out.push_back(static_cast<char>(*truth ? kTrueByte : kFalseByte));
    } else if (const auto* large = value.as<std::uint64_t>()) {
        appendUnsigned(out, *large);
    } else if (const auto* integer = value.as<std::int64_t>()) {
        appendSigned(out, *integer);
    }
    return {};
}

}  // namespace

Check BinaryWriter::scalar(const Value& value) {
    std::string encoded;
    if (auto check = appendScalar(encoded, value)) {
        return check;
    }
    refer(objectOf(std::move(encoded)));
    return {};
}

Check BinaryWriter::beginArray(const Array& array) {
    beginContainer(array.size(), false);
    return {};
}

Check BinaryWriter::beginDictionary(const Dictionary& dictionary) {
    beginContainer(dictionary.size(), true);
    for (const auto& entry : dictionary) {
        std::string encoded;
        if (auto check = appendText(encoded, entry.first)) {
            return check;
        }
        refer(objectOf(std::move(encoded)));
    }
    return {};
}

/// The object of a scalar in its encoded form, which tells equal ones of different types apart.
BinaryWriter::Number BinaryWriter::objectOf(std::string encoded) {
    const auto number = static_cast<Number>(objects_.size());
    const auto [scalar, isNew] = scalars_.try_emplace(std::move(encoded), number);
    if (isNew) {
        objects_.push_back({&scalar->first, 0, 0, false});
    }
    return scalar->second;
}

void BinaryWriter::refer(Number object) {
    if (!open_.empty()) {
        references_[open_.back()++] = object;
    }
}

void BinaryWriter::beginContainer(std::size_t elements, bool isDictionary) {
    refer(static_cast<Number>(objects_.size()));
    const std::size_t first = references_.size();
    objects_.push_back({nullptr, first, elements, isDictionary});
    references_.resize(first + elements * (isDictionary ? 2 : 1));
    open_.push_back(first);
}

void BinaryWriter::writeObject(Data& out, const Object& object, std::size_t referenceSize) const {
    if (object.scalar != nullptr) {
        out.insert(out.end(), object.scalar->begin(), object.scalar->end());
        return;
    }
    appendHead(out, object.isDictionary ? Marker::Dictionary : Marker::Array, object.elements);
    const std::size_t count = object.elements * (object.isDictionary ? 2 : 1);
    for (std::size_t index = 0; index < count; ++index) {
        appendNumber(out, references_[object.firstReference + index], referenceSize);
    }
}

Data BinaryWriter::finish() {
    const std::size_t referenceSize = std::size_t{1} << sizePower(objects_.size() - 1);
    Data out(kBinaryMagic.begin(), kBinaryMagic.end());
    std::vector<std::size_t> offsets;
    offsets.reserve(objects_.size());
    for (const Object& object : objects_) {
        offsets.push_back(out.size());
        writeObject(out, object, referenceSize);
    }
    const std::size_t offsetSize = std::size_t{1} << sizePower(offsets.back());
    const std::size_t table = out.size();
    for (const std::size_t offset : offsets) {
        appendNumber(out, offset, offsetSize);
    }
    out.resize(out.size() + kTrailerUnused);
    appendNumber(out, offsetSize, 1);
    appendNumber(out, referenceSize, 1);
    for (const std::size_t number : {objects_.size(), std::size_t{0}, table}) {
        appendNumber(out, number, 8);
    }
    return out;
}

}  // namespace ksw::plist
