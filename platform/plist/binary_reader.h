// binary_reader.h: values from the binary form.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <kestrelwood/values/value.h>

#include "platform/base/result.h"
#include "platform/plist/binary_layout.h"
#include "platform/plist/budget.h"
#include "platform/plist/builder.h"

namespace ksw::plist {

/// Reads one list, once. For one thread; the bytes are borrowed for the reader's life.
class BinaryReader {
public:
    BinaryReader(const BinaryLayout& layout, std::size_t inputSize)
        : layout_(layout), budget_(inputSize), builder_(budget_) {}

    Result<Value> run();

private:
    /// An object's first byte, and its content behind the count, if it has one.
    struct Head {
        Marker marker;
        std::uint8_t low;
        std::size_t content;
    };
    /// A container whose elements are being read.
    struct Open {
        std::uint64_t object;
        std::size_t references;  ///< Where they begin, in bytes.
        std::size_t count;       ///< Of elements; a dictionary has a key and a value for each.
        std::size_t next;
        bool isDictionary;
    };

    Check advance();
    Check readKey(std::uint64_t object);
    Check readValue(std::uint64_t object);
    Check readObject(const Head& head);
    Check readSingle(std::uint8_t byte);
    Check readInteger(const Head& head);
    Check readReal(const Head& head);
    Check readDate(const Head& head);
    Check readData(const Head& head);
    Check readText(const Head& head);
    Check readUtf16(Bytes units);
    Check openContainer(const Head& head);
    Check seek(std::uint64_t object, Head& head);
    Check count(const Head& head, std::size_t unit, Bytes& content) const;
    Check following(std::size_t& at, std::uint64_t& count) const;

    std::uint64_t reference(const Open& container, std::size_t index) const;
    bool isOpen(std::uint64_t object) const;
    Error errorHere(Complaint complaint) const;

    const BinaryLayout& layout_;
    Budget budget_;
    Builder builder_;
    std::vector<Open> open_;
    /// What an error is about: the object read last and where it begins.
    std::uint64_t object_ = 0;
    std::uint64_t offset_ = 0;
    /// Text converted to UTF-8; its room is reused.
    std::string scratch_;
};

}  // namespace ksw::plist
