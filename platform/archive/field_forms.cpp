#include "platform/archive/field_forms.h"

#include <algorithm>

namespace ksw::archive {

namespace {

constexpr const char* kTooLong = "field too long";

/// Checks a size against the row's bound before it is written, so that no archive is made that no reader takes.
void checkSize(Writer& writer, const FieldInfo& row, std::size_t size) {
    if (size > row.sizeMax) {
        writer.fail(FormatError::LimitPassed, kTooLong);
    }
}

/// Reads the elements of an array; the bytes of all of them together are bounded by the row.
template <class Element, class ReadElement>
bool readStrings(Reader& reader, const FieldInfo& row, std::vector<Element>& value,
                 const ReadElement& readElement) {
    std::size_t count = 0;
    if (!reader.enterArray(count) || !reader.chargeHeap(count * sizeof(Element))) {
        return false;
    }
    value.clear();
    value.reserve(std::min(count, limits::kReserveMax));
    std::size_t left = row.sizeMax;
    for (; count > 0; --count) {
        Element& element = value.emplace_back();
        if (!readElement(element, left)) {
            return false;
        }
        left -= element.size();
    }
    reader.leave();
    return true;
}

template <class Element, class WriteElement>
void writeStrings(Writer& writer, const FieldInfo& row, const std::vector<Element>& value,
                  const WriteElement& writeElement) {
    if (!writer.enter()) {
        return;
    }
    writer.array(value.size());
    std::size_t size = 0;
    for (const Element& element : value) {
        size += element.size();
        writeElement(element);
    }
    writer.leave();
    checkSize(writer, row, size);
}

/// Runs `read` and bounds the bytes that it took.
template <class Read>
bool readBounded(Reader& reader, const FieldInfo& row, const Read& read) {
    const std::size_t begin = reader.position();
    return read() && (reader.position() - begin <= row.sizeMax || reader.fail(FormatError::LimitPassed, kTooLong));
}

}  // namespace

void FieldForm<std::string>::write(Writer& writer, const FieldInfo& row, const std::string& value) {
    checkSize(writer, row, value.size());
    writer.text(value);
}

void FieldForm<Data>::write(Writer& writer, const FieldInfo& row, const Data& value) {
    checkSize(writer, row, value.size());
    writer.bytes(value);
}

void FieldForm<std::optional<URL>>::write(Writer& writer, const FieldInfo& row, const std::optional<URL>& value) {
    checkSize(writer, row, value->relativeString().size());
    if (const URL* base = value->baseURL()) {
        checkSize(writer, row, base->relativeString().size());
    }
    writer.url(*value);
}

void FieldForm<std::vector<std::string>>::write(Writer& writer, const FieldInfo& row,
                                                const std::vector<std::string>& value) {
    writeStrings(writer, row, value, [&writer](const std::string& element) { writer.text(element); });
}

bool FieldForm<std::vector<std::string>>::read(Reader& reader, const FieldInfo& row,
                                               std::vector<std::string>& value) {
    return readStrings(reader, row, value, [&reader](std::string& element, std::size_t sizeMax) {
        return reader.text(element, sizeMax);
    });
}

void FieldForm<std::vector<Data>>::write(Writer& writer, const FieldInfo& row, const std::vector<Data>& value) {
    writeStrings(writer, row, value, [&writer](const Data& element) { writer.bytes(element); });
}

bool FieldForm<std::vector<Data>>::read(Reader& reader, const FieldInfo& row, std::vector<Data>& value) {
    return readStrings(reader, row, value,
                       [&reader](Data& element, std::size_t sizeMax) { return reader.bytes(element, sizeMax); });
}

void FieldForm<Dictionary>::write(Writer& writer, const FieldInfo& row, const Dictionary& value) {
    const std::size_t begin = writer.size();
    writer.dictionary(value);
    checkSize(writer, row, writer.size() - begin);
}

bool FieldForm<Dictionary>::read(Reader& reader, const FieldInfo& row, Dictionary& value) {
    return readBounded(reader, row, [&] { return reader.dictionary(value, row.kinds); });
}

void FieldForm<Value>::write(Writer& writer, const FieldInfo& row, const Value& value) {
    const std::size_t begin = writer.size();
    writer.value(value);
    checkSize(writer, row, writer.size() - begin);
}

bool FieldForm<Value>::read(Reader& reader, const FieldInfo& row, Value& value) {
    return readBounded(reader, row, [&] { return reader.value(value, row.kinds); });
}

}  // namespace ksw::archive
