// code_directory_fuzz: any bytes as a code directory. One that is read is written as the very bytes it was read
// from.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "platform/facts/code_directory.h"

using namespace ksw;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Bytes input(data, size);
    const auto directory = facts::decodeDirectory(input);
    if (!directory) {
        return 0;
    }
    const auto again = facts::encodeDirectory(*directory);
    if (!again || *again != Data(input.begin(), input.end())) {
        std::abort();
    }
    return 0;
}
