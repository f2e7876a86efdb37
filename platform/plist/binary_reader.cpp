#include "platform/plist/binary_reader.h"

#include <algorithm>
#include <utility>

#include "platform/base/checked.h"

namespace ksw::plist {
namespace {

constexpr Complaint kNoReference{FormatError::Malformed, "a reference to no object"};
constexpr Complaint kNoOffset{FormatError::Malformed, "the offset lies outside the objects"};
constexpr Complaint kCycle{FormatError::Malformed, "a container that contains itself"};
constexpr Complaint kNoCount{FormatError::Malformed, "a count that is not an integer"};

Complaint unsupported(std::string_view text) {
    return {FormatError::Unsupported, text};
}

}  // namespace

Result<Value> BinaryReader::run() {
    Check check = readValue(layout_.root());
    while (!check && !builder_.isFinished()) {
        check = advance();
    }
    if (check) {
        return errorHere(*check);
    }
    return builder_.takeRoot();
}

Error BinaryReader::errorHere(Complaint complaint) const {
    std::string text = "binary property list, object " + std::to_string(object_);
    text += " at offset " + std::to_string(offset_) + ": ";
    text += complaint.text;
    return Error(complaint.code, text);
}

/// Reads the next element of the innermost container, or closes it.
Check BinaryReader::advance() {
    Open& top = open_.back();
    if (top.next == top.count) {
        open_.pop_back();
        return builder_.close();
    }
    const std::size_t index = top.next++;
    if (!top.isDictionary) {
        return readValue(reference(top, index));
    }
    const std::uint64_t value = reference(top, top.count + index);
    const Check check = readKey(reference(top, index));
    return check ? check : readValue(value);
}

std::uint64_t BinaryReader::reference(const Open& container, std::size_t index) const {
    const std::size_t size = layout_.referenceSize();
    return bigEndian(layout_.objects().subspan(container.references + index * size, size));
}

bool BinaryReader::isOpen(std::uint64_t object) const {
    return std::any_of(open_.begin(), open_.end(), [&](const Open& open) { return open.object == object; });
}

/// Goes to an object and takes its first byte apart.
Check BinaryReader::seek(std::uint64_t object, Head& head) {
    if (object >= layout_.objectCount()) {
        return kNoReference;
    }
    object_ = object;
    offset_ = layout_.offsetOf(object);
    if (offset_ < kBinaryMagic.size() || offset_ >= layout_.objects().size()) {
        return kNoOffset;
    }
    const auto at = static_cast<std::size_t>(offset_);
    const std::uint8_t byte = layout_.objects()[at];
    head = {static_cast<Marker>(byte >> 4U), static_cast<std::uint8_t>(byte & 0xFU), at + 1};
    return {};
}

Check BinaryReader::readKey(std::uint64_t object) {
    Head head{};
    if (auto check = seek(object, head)) {
        return check;
    }
    if (head.marker != Marker::Ascii && head.marker != Marker::Utf16) {
        return Complaint{FormatError::WrongType, "a key that is not a string"};
    }
    return readText(head);
}

Check BinaryReader::readValue(std::uint64_t object) {
    Head head{};
    const Check check = seek(object, head);
    return check ? check : readObject(head);
}

Check BinaryReader::readObject(const Head& head) {
    switch (head.marker) {
        case Marker::Single:
            return readSingle(head.low);
        case Marker::Integer:
            return readInteger(head);
        case Marker::Real:
            return readReal(head);
        case Marker::Date:
            return readDate(head);
        case Marker::Data:
            return readData(head);
        case Marker::Ascii:
        case Marker::Utf16:
            return readText(head);
        case Marker::Array:
        case Marker::Dictionary:
            return openContainer(head);
        case Marker::Uid:
            return unsupported("an archive's reference has no value");
        case Marker::OrderedSet:
        case Marker::Set:
            return unsupported("a set has no value");
    }
    return kUnknownObject;
}

Check BinaryReader::readSingle(std::uint8_t byte) {
    switch (byte) {
        case kFalseByte:
            return builder_.scalar(false);
        case kTrueByte:
            return builder_.scalar(true);
        case kNullByte:
            return unsupported("nothing has no value in a property list");
        case kFillByte:
            return unsupported("a fill byte has no value");
        default:
            return kUnknownObject;
    }
}

Check BinaryReader::openContainer(const Head& head) {
    const bool isDictionary = head.marker == Marker::Dictionary;
    Bytes content;
    const std::size_t unit = layout_.referenceSize() * (isDictionary ? 2 : 1);
    if (auto check = count(head, unit, content)) {
        return check;
    }
    if (isOpen(object_)) {
        return kCycle;
    }
    const std::size_t elements = content.size() / unit;
    if (auto check = builder_.open(isDictionary ? Builder::Kind::Dictionary : Builder::Kind::Array, elements)) {
        return check;
    }
    const auto references = static_cast<std::size_t>(content.data() - layout_.objects().data());
    open_.push_back({object_, references, elements, 0, isDictionary});
    return {};
}

/// The content of an object that counts its elements, each of `unit` bytes.
Check BinaryReader::count(const Head& head, std::size_t unit, Bytes& content) const {
    std::uint64_t number = head.low;
    std::size_t at = head.content;
    if (head.low == kCountFollows) {
        if (auto check = following(at, number)) {
            return check;
        }
    }
    const auto size = checkedMultiply<std::uint64_t>(number, unit);
    if (!size || *size > layout_.objects().size() - at) {
        return kCutOff;
    }
    content = layout_.objects().subspan(at, static_cast<std::size_t>(*size));
    return {};
}

/// A count that stands behind the first byte as an integer object; `at` moves behind it.
Check BinaryReader::following(std::size_t& at, std::uint64_t& count) const {
    const Bytes objects = layout_.objects();
    if (at == objects.size()) {
        return kCutOff;
    }
    const std::uint8_t byte = objects[at++];
    const std::size_t size = std::size_t{1} << (byte & 0xFU);
    if (static_cast<Marker>(byte >> 4U) != Marker::Integer || size > sizeof(count)) {
        return kNoCount;
    }
    if (size > objects.size() - at) {
        return kCutOff;
    }
    count = bigEndian(objects.subspan(at, size));
    at += size;
    return {};
}

}  // namespace ksw::plist
