// cbor_fuzz: any bytes as a property-list value. What is read must be written and read again as the same.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "platform/archive/cbor_reader.h"
#include "platform/archive/cbor_writer.h"

using namespace ksw;
using namespace ksw::archive;

namespace {

/// Whatever it is, passing over it and reading it agree about where a value ends.
void skipAgrees(Bytes input, std::size_t end) {
    DecodeBudget budget(input.size());
    Reader reader(input, budget);
    if (!reader.skip() || reader.position() != end || budget.depth() != 0) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Bytes input(data, size);
    DecodeBudget budget(size);
    Reader reader(input, budget);
    Value value;
    if (!reader.value(value, ValueKinds::Any)) {
        DecodeBudget other(size);
        static_cast<void>(Reader(input, other).skip());
        return 0;
    }
    skipAgrees(input, reader.position());
    Writer writer;
    writer.value(value);
    const auto bytes = writer.take();
    DecodeBudget again(SIZE_MAX);
    Value back;
    if (!bytes || !Reader(*bytes, again).value(back, ValueKinds::Any)) {
        std::abort();
    }
    Writer second;
    second.value(back);
    if (*second.take() != *bytes) {
        std::abort();
    }
    return 0;
}
