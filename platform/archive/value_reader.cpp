#include "platform/archive/value_reader.h"

#include <algorithm>
#include <utility>

namespace ksw::archive {

namespace {

constexpr std::size_t kAllocation = 2 * sizeof(void*);  // the allocator's own
/// A dictionary's entry: colour, three pointers, key, value.
constexpr std::size_t kEntrySize = 4 * sizeof(void*) + sizeof(Dictionary::value_type) + kAllocation;
/// An error's content: domain, code, dictionary, reference counts.
constexpr std::size_t kErrorSize = sizeof(std::string) + sizeof(Dictionary) + 4 * sizeof(void*) + kAllocation;
constexpr const char* kErrorExpected = "error expected";

}  // namespace

bool ValueReader::error(Value& into) {
    std::string_view name;
    std::size_t keys = 0;
    if (!reader_.tag(kObjectTag, kErrorExpected) || !reader_.enterObject(name, keys)) {
        return false;
    }
    if (name != "Error") {
        return reader_.fail(FormatError::WrongClass, kErrorExpected);
    }
    return openError(into, keys) && rest();
}

bool ValueReader::allow(ValueKinds kind) {
    return allows(kinds_, kind) || reader_.fail(FormatError::WrongType, "a value of this kind is not allowed here");
}

/// Takes one value, or opens it when it has others in it.
bool ValueReader::item(Value& into) {
    const ItemKind kind = reader_.peek();
    switch (kind) {
        case ItemKind::Array:
            return allow(ValueKinds::Array) && openArray(*(into = Array()).as<Array>());
        case ItemKind::Map:
            return allow(ValueKinds::Dictionary) && openDictionary(*(into = Dictionary()).as<Dictionary>());
        case ItemKind::Tag:
            return tagged(into);
        default:
            return scalar(kind, into);
    }
}

bool ValueReader::scalar(ItemKind kind, Value& into) {
    switch (kind) {
        case ItemKind::Unsigned: {
            std::uint64_t number = 0;
            const bool taken = allow(ValueKinds::Integer) && reader_.unsignedInteger(number);
            into = number;
            return taken;
        }
        case ItemKind::Negative: {
            std::int64_t number = 0;
            const bool taken = allow(ValueKinds::Integer) && reader_.integer(number);
            into = number;
            return taken;
        }
        case ItemKind::Real: {
            double number = 0;
            const bool taken = allow(ValueKinds::Real) && reader_.real(number);
            into = number;
            return taken;
        }
        case ItemKind::Boolean: {
            bool truth = false;
            const bool taken = allow(ValueKinds::Boolean) && reader_.boolean(truth);
            into = truth;
            return taken;
        }
        case ItemKind::Text:
            return allow(ValueKinds::String) && reader_.text(*(into = std::string()).as<std::string>());
        case ItemKind::Bytes:
            return allow(ValueKinds::Data) && reader_.bytes(*(into = Data()).as<Data>());
        case ItemKind::Null:
            into = Value();
            return allow(ValueKinds::Null) && reader_.null();
        default:
            break;
    }
    return reader_.remaining() == 0 ? reader_.fail(FormatError::Malformed, "cut short")
                                    : reader_.fail(FormatError::WrongType, "value expected");
}

bool ValueReader::tagged(Value& into) {
    std::string_view name;
    std::size_t keys = 0;
    if (!reader_.tag(kObjectTag, "value expected")) {
        return false;
    }
    if (!reader_.enterObject(name, keys)) {
        return false;
    }
    if (name == "Date") {
        Date date;
        const bool taken = allow(ValueKinds::Date) && reader_.dateKeys(date, keys);
        into = date;
        return taken;
    }
    if (name == "Error") {
        return allow(ValueKinds::Error) && openError(into, keys);
    }
    return reader_.fail(FormatError::WrongClass, "a value of this class is not allowed here");
}

bool ValueReader::openArray(Array& into) {
    std::size_t count = 0;
    if (!reader_.enterArray(count) || !reader_.chargeHeap(count * sizeof(Value))) {
        return false;
    }
    into.clear();
    into.reserve(std::min(count, limits::kReserveMax));
    frames_.push_back({&into, nullptr, nullptr, count, unknown_.begin()});
    return true;
}

bool ValueReader::openDictionary(Dictionary& into) {
    std::size_t count = 0;
    if (!reader_.enterMap(count) || !reader_.chargeHeap(count * kEntrySize)) {
        return false;
    }
    into.clear();
    frames_.push_back({nullptr, &into, nullptr, count, unknown_.begin()});
    return true;
}

bool ValueReader::openError(Value& into, std::size_t keys) {
    if (!reader_.chargeHeap(kErrorSize + sizeof(ErrorParts))) {
        return false;
    }
    auto parts = std::make_unique<ErrorParts>();
    parts->into = &into;
    frames_.push_back({nullptr, nullptr, std::move(parts), keys, unknown_.begin()});
    return true;
}

/// Reads until nothing is open.
bool ValueReader::rest() {
    while (!frames_.empty()) {
        Frame& frame = frames_.back();
        if (frame.left == 0) {
            if (!close()) {
                return false;
            }
            continue;
        }
        --frame.left;
        if (!step(frame)) {
            return false;
        }
    }
    return true;
}

bool ValueReader::step(Frame& frame) {
    if (frame.array != nullptr) {
        return item(frame.array->emplace_back());
    }
    return frame.dictionary != nullptr ? nextEntry(*frame.dictionary) : nextErrorKey(frame);
}

bool ValueReader::nextEntry(Dictionary& dictionary) {
    std::string key;
    if (!reader_.text(key)) {
        return false;
    }
    const std::size_t before = dictionary.size();
    const auto entry = dictionary.emplace_hint(dictionary.end(), std::move(key), Value());
    if (dictionary.size() == before) {
        return reader_.fail(FormatError::Malformed, "key occurs twice");
    }
    return item(entry->second);
}

bool ValueReader::nextErrorKey(Frame& frame) {
    ErrorParts& parts = *frame.error;
    std::string_view key;
    if (!reader_.text(key)) {
        return false;
    }
    const bool isDomain = key == "domain";
    const bool isCode = key == "code";
    if (!isDomain && !isCode && key != "userInfo") {
        return unknown_.passOver(reader_, frame.unknownBegin, key);
    }
    if (isDomain ? parts.domain.has_value() : isCode ? parts.code.has_value() : parts.userInfo.has_value()) {
        return reader_.fail(FormatError::Malformed, "key occurs twice");
    }
    if (isDomain) {
        return reader_.text(parts.domain.emplace());
    }
    return isCode ? reader_.integer(parts.code.emplace()) : openDictionary(parts.userInfo.emplace());
}

bool ValueReader::close() {
    Frame frame = std::move(frames_.back());
    frames_.pop_back();
    unknown_.close(frame.unknownBegin);
    reader_.leave();
    if (frame.error == nullptr) {
        return true;
    }
    reader_.leave();
    return closeError(*frame.error);
}

bool ValueReader::closeError(ErrorParts& parts) {
    if (!parts.domain || !parts.code) {
        return reader_.fail(FormatError::Malformed, "error without domain or code");
    }
    *parts.into = Error(*parts.domain, *parts.code, std::move(parts.userInfo).value_or(Dictionary()));
    return true;
}

}  // namespace ksw::archive
