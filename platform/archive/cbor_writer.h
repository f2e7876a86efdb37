// cbor_writer.h: appends CBOR items to a growing buffer. Definite lengths and shortest heads, so equal values give
// equal bytes. Objects with classes: keyed_archive.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include <kestrelwood/values.h>

#include "platform/archive/cbor_head.h"
#include "platform/base/result.h"

namespace ksw::archive {

/// Writes items one behind the other; that an array or map gets as many as it announced is the caller's part. The
/// first thing that cannot be written makes it fail, and `take` then answers why. Allocates and lets
/// `std::bad_alloc` through. One thread.
class Writer {
public:
    /// Appends to `prefix`, a frame's header for instance.
    explicit Writer(Data prefix = {});

    void unsignedInteger(std::uint64_t value) { head(Major::Unsigned, value); }
    void integer(std::int64_t value) {
        if (value >= 0) {
            head(Major::Unsigned, static_cast<std::uint64_t>(value));
        } else {
            head(Major::Negative, ~static_cast<std::uint64_t>(value));
        }
    }
    void boolean(bool value) { byte(value ? kTrueByte : kFalseByte); }
    void null() { byte(kNullByte); }
    /// Always in double precision.
    void real(double value);
    /// Fails when the text is not UTF-8 or too long for a reader.
    void text(std::string_view text);
    /// Fails when there are too many bytes for a reader.
    void bytes(Bytes bytes);
    void array(std::size_t count) { head(Major::Array, count); }
    void map(std::size_t count) { head(Major::Map, count); }
    void tag(std::uint64_t tag) { head(Major::Tag, tag); }

    // The system's values (docs/archive.md). Values nested deeper than limits::kDepthMax make the writer fail.

    void uuid(const UUID& uuid);
    void url(const URL& url);
    void date(Date date);
    void error(const Error& error);
    void dictionary(const Dictionary& dictionary);
    void array(const Array& array);
    void value(const Value& value);

    /// Bytes that are CBOR already.
    void raw(const std::uint8_t* bytes, std::size_t size) {
        room(size);
        if (size != 0) {
            std::memcpy(buffer_.data() + used_, bytes, size);
            used_ += size;
        }
    }

    /// Makes room at once for so many bytes more, a guess that spares copying while the buffer grows.
    void expect(std::size_t size) {
        if (buffer_.size() - used_ < size) {
            buffer_.resize(used_ + size);
        }
    }

    /// One array or map deeper, and back. `enter` fails when it is too deep for a reader.
    bool enter();
    void leave() { --depth_; }

    bool ok() const { return failure_ == nullptr; }
    /// Makes the writer fail, unless it has failed. `text` is static.
    void fail(FormatError code, const char* text);
    Status status() const;
    /// Bytes written, prefix included.
    std::size_t size() const { return used_; }
    /// The prefix and all that was written, or why not. The writer is used up.
    Result<Data> take();

private:
    void room(std::size_t size) {
        if (buffer_.size() - used_ < size) {
            grow(size);
        }
    }
    void grow(std::size_t size);
    void byte(std::uint8_t byte) {
        room(1);
        buffer_[used_++] = byte;
    }
    void head(Major major, std::uint64_t argument) {
        if (argument < 24) {
            byte(static_cast<std::uint8_t>(static_cast<unsigned>(major) << 5U | static_cast<unsigned>(argument)));
        } else {
            longHead(major, argument);
        }
    }
    void longHead(Major major, std::uint64_t argument);
    bool enterObject(std::string_view className, std::size_t keys);
    void leaveObject();

    Data buffer_;  // its size is what there is room for
    std::size_t used_ = 0;
    std::size_t depth_ = 0;
    FormatError code_ = FormatError::Unsupported;
    const char* failure_ = nullptr;
};

}  // namespace ksw::archive
