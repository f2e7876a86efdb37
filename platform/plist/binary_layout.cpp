#include "platform/plist/binary_layout.h"

#include <algorithm>
#include <string>

#include "platform/base/checked.h"
#include "platform/base/limits.h"

namespace ksw::plist {
namespace {

/// What all versions of the form begin with.
constexpr std::string_view kFamilyMagic = "bplist";
constexpr std::size_t kNumberSizeMax = 8;

Error fail(FormatError code, std::string_view text) {
    return Error(code, std::string("binary property list, ").append(text));
}

Error malformed(std::string_view text) {
    return fail(FormatError::Malformed, text);
}

bool startsWith(Bytes bytes, std::string_view prefix) {
    return bytes.size() >= prefix.size() &&
           std::equal(prefix.begin(), prefix.end(), bytes.begin(),
                      [](char left, std::uint8_t right) { return static_cast<std::uint8_t>(left) == right; });
}

bool isNumberSize(std::size_t size) {
    return size >= 1 && size <= kNumberSizeMax;
}

}  // namespace

Result<BinaryLayout> BinaryLayout::of(Bytes bytes) {
    if (!startsWith(bytes, kBinaryMagic)) {
        return startsWith(bytes, kFamilyMagic) ? fail(FormatError::Unsupported, "offset 6: another version")
                                               : malformed("offset 0: not the magic");
    }
    if (bytes.size() < kBinaryMagic.size() + kTrailerSize) {
        return malformed("trailer: cut off");
    }
    const std::size_t trailerStart = bytes.size() - kTrailerSize;
    const Bytes trailer = bytes.subspan(trailerStart + kTrailerUnused);
    BinaryLayout layout;
    layout.offsetSize_ = trailer[0];
    layout.referenceSize_ = trailer[1];
    layout.objectCount_ = bigEndian(trailer.subspan(2, 8));
    layout.root_ = bigEndian(trailer.subspan(10, 8));
    const std::uint64_t tableStart = bigEndian(trailer.subspan(18, 8));
    if (!isNumberSize(layout.offsetSize_) || !isNumberSize(layout.referenceSize_)) {
        return malformed("trailer: sizes of offsets and references are 1 to 8");
    }
    if (layout.objectCount_ > limits::kObjectsMax) {
        return fail(FormatError::LimitPassed, "trailer: too many values");
    }
    if (layout.root_ >= layout.objectCount_) {
        return malformed("trailer: the root is not one of the objects");
    }
    const auto tableSize = checkedMultiply<std::uint64_t>(layout.objectCount_, layout.offsetSize_);
    const auto tableEnd = tableSize ? checkedAdd(tableStart, *tableSize) : std::nullopt;
    if (tableStart < kBinaryMagic.size() || tableEnd != trailerStart) {
        return malformed("trailer: the table of offsets does not end at the trailer");
    }
    layout.objects_ = bytes.first(static_cast<std::size_t>(tableStart));
    layout.table_ = bytes.subspan(layout.objects_.size(), static_cast<std::size_t>(*tableSize));
    return layout;
}

}  // namespace ksw::plist
