// cbor_reader.h: takes CBOR apart, item by item, in the caller's order. Definite lengths and shortest heads only.
// Does not recurse and does not own its input. Objects with classes: keyed_archive.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kestrelwood/values.h>

#include "platform/archive/cbor_head.h"
#include "platform/archive/decode_budget.h"
#include "platform/archive/value_kinds.h"
#include "platform/base/limits.h"
#include "platform/base/result.h"

namespace ksw::archive {

/// What the next item is.
enum class ItemKind : std::uint8_t {
    Unsigned,
    Negative,
    Bytes,
    Text,
    Array,
    Map,
    Tag,
    Boolean,
    Null,
    Real,
    Other,  ///< A simple value that has no meaning here.
    End,    ///< There is no item: the input is used up.
};

/// Why reading stopped. `text` is static, and null as long as nothing failed.
struct ReadFailure {
    FormatError code = FormatError::Malformed;
    const char* text = nullptr;
};

/// Reads items from bytes that are borrowed for its life. Each reading operation takes the next item and answers
/// whether it was of the kind asked for; the first that fails decides the error, and nothing is read after it. On
/// failure what was read into is unspecified. Operations that fill strings, lists or values allocate: they charge
/// the budget first, and let `std::bad_alloc` through, which whoever begins a decoding catches
/// (`outOfMemoryError`). One thread.
class Reader {
public:
    Reader(Bytes input, DecodeBudget& budget)
        : cursor_(input.data()), end_(input.data() + input.size()), begin_(input.data()), budget_(&budget) {}

    bool ok() const { return failure_.text == nullptr; }
    const ReadFailure& failure() const { return failure_; }
    /// The failure as an error whose text is "PLACE: what is wrong". Only after a failure.
    Error error(std::string_view place) const;
    /// Makes the reader fail, unless it has failed. Always false, so that a check can return it. `text` is static.
    bool fail(FormatError code, const char* text);

    DecodeBudget& budget() { return *budget_; }
    std::size_t position() const { return static_cast<std::size_t>(cursor_ - begin_); }
    std::size_t remaining() const { return static_cast<std::size_t>(end_ - cursor_); }
    ItemKind peek() const;
    bool nextIsNull() const { return cursor_ != end_ && *cursor_ == kNullByte; }

    // Numbers and simple values. An integer is not a real, and a real not an integer.

    bool unsignedInteger(std::uint64_t& value) { return head(Major::Unsigned, value, "unsigned integer expected"); }
    bool integer(std::int64_t& value);
    bool boolean(bool& value);
    bool null();
    /// Half, single and double precision are read.
    bool real(double& value);

    // Strings: the borrowed forms view the input. Text is checked to be UTF-8. Longer than `sizeMax` bytes:
    // refused.

    bool text(std::string_view& text, std::size_t sizeMax = limits::kStringMax);
    bool text(std::string& text, std::size_t sizeMax = limits::kStringMax);
    bool bytes(Bytes& bytes, std::size_t sizeMax = limits::kStringMax);
    bool bytes(Data& bytes, std::size_t sizeMax = limits::kStringMax);

    // Arrays and maps: `count` is the number of elements or of pairs, never more than the bytes that remain could
    // hold. Each success goes one deeper and is paired with `leave` when the elements have been read.

    bool enterArray(std::size_t& count);
    bool enterMap(std::size_t& count);
    void leave() { budget_->leave(); }
    bool tag(std::uint64_t& tag) { return head(Major::Tag, tag, "tag expected"); }
    /// Takes the tag when it is this one; fails with `expected` (static) otherwise.
    bool tag(std::uint64_t tag, const char* expected);
    /// Behind the tag of an object: its class's name and how many keys it has. Two deeper: paired with two `leave`.
    bool enterObject(std::string_view& className, std::size_t& keys);

    // What the system's values look like in CBOR (docs/archive.md).

    bool uuid(UUID& uuid);
    bool url(std::optional<URL>& url, std::size_t sizeMax = limits::kStringMax);
    bool date(Date& date);
    /// The rest of a date behind `enterObject`, which it leaves.
    bool dateKeys(Date& date, std::size_t keys);
    /// `userInfo` says what may occur in the error's user information; below it the same holds.
    bool error(std::optional<Error>& error, ValueKinds userInfo = ValueKinds::Any);
    bool dictionary(Dictionary& dictionary, ValueKinds kinds = ValueKinds::PropertyList);
    bool array(Array& array, ValueKinds kinds = ValueKinds::PropertyList);
    bool value(Value& value, ValueKinds kinds = ValueKinds::PropertyList);

    /// Takes an item and all that is in it, whatever it is. Marks of shareable values in it are counted.
    bool skip();
    /// Counts one mark of a shareable value; `number` is how many there were before.
    bool countMark(std::uint32_t& number);
    /// Marks counted so far.
    std::uint32_t marks() const { return marks_; }
    /// Succeeds when the input is used up.
    bool end();

    /// Takes these very bytes when they come next; else takes nothing and answers false without failing.
    bool takeIfNext(const std::uint8_t* expected, std::size_t size) {
        if (remaining() < size || std::memcmp(cursor_, expected, size) != 0) {
            return false;
        }
        cursor_ += size;
        return true;
    }
    /// Charges the heap that is about to be taken; fails when it is too much.
    bool chargeHeap(std::size_t bytes) {
        return budget_->takeHeap(bytes) || fail(FormatError::LimitPassed, "more memory than the input may take");
    }

private:
    bool head(Major major, std::uint64_t& argument, const char* expected) {
        if (cursor_ == end_ || *cursor_ >> 5U != static_cast<unsigned>(major)) {
            return wrongItem(expected);
        }
        const unsigned info = *cursor_ & 31U;
        if (info >= 24) {
            return longHead(argument);
        }
        argument = info;
        ++cursor_;
        return true;
    }
    bool wrongItem(const char* expected);
    bool longHead(std::uint64_t& argument);
    bool string(Major major, const char* expected, const char* tooLong, std::size_t sizeMax, Bytes& bytes);
    bool enter(Major major, const char* expected, std::size_t bytesAnElement, std::size_t& count);
    bool number(std::uint8_t size, std::uint64_t& value);
    bool skipOne(std::uint64_t& pending, std::uint64_t& inside);
    bool skipSimple();
    bool relativeUrl(std::optional<URL>& url, std::size_t sizeMax);
    bool plainUrl(std::optional<URL>& url, const URL* base, std::size_t sizeMax);

    const std::uint8_t* cursor_;
    const std::uint8_t* end_;
    const std::uint8_t* begin_;
    DecodeBudget* budget_;
    std::uint32_t marks_ = 0;
    ReadFailure failure_;
};

/// The error of a decoding that got no memory. It is made on first use, so a decoding asks for it before it begins.
const Error& outOfMemoryError();

}  // namespace ksw::archive
