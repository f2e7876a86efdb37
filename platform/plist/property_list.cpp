#include "platform/plist/property_list.h"

#include <algorithm>
#include <new>

#include "platform/plist/binary_layout.h"
#include "platform/plist/binary_reader.h"
#include "platform/plist/binary_writer.h"
#include "platform/plist/value_walk.h"
#include "platform/plist/xml_reader.h"
#include "platform/plist/xml_writer.h"

namespace ksw::plist {
namespace {

/// Runs a reader or writer; here its only exception ends, that of the allocator.
template <class Work>
auto withinMemory(Work work) -> decltype(work()) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return Error(FormatError::LimitPassed, "property list: out of memory");
    }
}

template <class Writer>
Result<Data> write(const Value& value) {
    Writer writer;
    if (auto walked = walk(value, writer); !walked) {
        return walked.error();
    }
    return writer.finish();
}

}  // namespace

Format formatOf(Bytes bytes) {
    const bool isBinary =
        bytes.size() >= kBinaryMagic.size() &&
        std::equal(kBinaryMagic.begin(), kBinaryMagic.end(), bytes.begin(),
                   [](char left, std::uint8_t right) { return left == static_cast<char>(right); });
    return isBinary ? Format::Binary : Format::Xml;
}

Result<Value> read(Bytes bytes) {
    return formatOf(bytes) == Format::Binary ? readBinary(bytes) : readXml(bytes);
}

Result<Value> readXml(Bytes bytes) {
    return withinMemory([&] { return XmlReader(bytes).run(); });
}

Result<Value> readBinary(Bytes bytes) {
    return withinMemory([&]() -> Result<Value> {
        auto layout = BinaryLayout::of(bytes);
        if (!layout) {
            return layout.error();
        }
        return BinaryReader(*layout, bytes.size()).run();
    });
}

Result<Data> writeXml(const Value& value) {
    return withinMemory([&] { return write<XmlWriter>(value); });
}

Result<Data> writeBinary(const Value& value) {
    return withinMemory([&] { return write<BinaryWriter>(value); });
}

}  // namespace ksw::plist
