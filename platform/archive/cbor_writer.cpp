#include "platform/archive/cbor_writer.h"

#include <algorithm>
#include <bit>

#include "platform/base/limits.h"
#include "platform/base/utf8.h"

namespace ksw::archive {

namespace {

constexpr std::size_t kFirstSize = 512;

}  // namespace

Writer::Writer(Data prefix) : buffer_(std::move(prefix)), used_(buffer_.size()) {}

void Writer::grow(std::size_t size) {
    buffer_.resize(std::max({kFirstSize, 2 * buffer_.size(), used_ + size}));
}

void Writer::longHead(Major major, std::uint64_t argument) {
    const unsigned logarithm = argument < 0x100 ? 0 : argument < 0x1'0000 ? 1 : argument < 0x1'0000'0000 ? 2 : 3;
    const std::size_t size = std::size_t{1} << logarithm;
    room(1 + size);
    std::uint8_t* const place = buffer_.data() + used_;
    place[0] = static_cast<std::uint8_t>(static_cast<unsigned>(major) << 5U | (24 + logarithm));
    for (std::size_t i = size; i > 0; --i) {
        place[i] = static_cast<std::uint8_t>(argument);
        argument >>= 8U;
    }
    used_ += 1 + size;
}

void Writer::real(double value) {
    const auto bits = std::bit_cast<std::uint64_t>(value);
    std::uint8_t bytes[9] = {kDoubleByte};
    for (unsigned i = 0; i < 8; ++i) {
        bytes[1 + i] = static_cast<std::uint8_t>(bits >> (56 - 8 * i));
    }
    raw(bytes, sizeof(bytes));
}

void Writer::text(std::string_view text) {
    if (text.size() > limits::kStringMax) {
        fail(FormatError::LimitPassed, "text too long");
    } else if (!isUtf8(text)) {
        fail(FormatError::Unsupported, "text is not UTF-8");
    } else {
        head(Major::Text, text.size());
        raw(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    }
}

void Writer::bytes(Bytes bytes) {
    if (bytes.size() > limits::kStringMax) {
        fail(FormatError::LimitPassed, "byte string too long");
    } else {
        head(Major::Bytes, bytes.size());
        raw(bytes.data(), bytes.size());
    }
}

bool Writer::enter() {
    if (depth_ == limits::kDepthMax) {
        fail(FormatError::LimitPassed, "nested too deeply");
        return false;
    }
    ++depth_;
    return true;
}

void Writer::fail(FormatError code, const char* text) {
    if (ok()) {
        code_ = code;
        failure_ = text;
    }
}

Status Writer::status() const {
    return ok() ? Status() : Status(Error(code_, failure_));
}

Result<Data> Writer::take() {
    if (!ok()) {
        return Error(code_, failure_);
    }
    buffer_.resize(used_);
    return std::move(buffer_);
}

}  // namespace ksw::archive
