// signature_fuzz: any bytes as a file. A signature that is found and read in it is written as the very bytes that
// stand behind the code.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "platform/facts/signed_file.h"

using namespace ksw;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Bytes file(data, size);
    const facts::CodeKind kind = facts::codeKindOf(file.first(std::min(size, facts::kCodeHeadSize)));
    const auto place = facts::findSignature(kind, file.last(std::min(size, facts::kSignatureTailSize)), size);
    if (!place || !*place) {
        return 0;
    }
    const facts::SignaturePlace& found = **place;
    if (found.codeSize == 0 || found.codeSize + found.storedSize + facts::kSignatureTailSize != size) {
        std::abort();
    }
    const auto parts = facts::decodeSignature(kind, file.subspan(found.codeSize, found.storedSize));
    if (!parts) {
        return 0;
    }
    const auto again = facts::encodeSignature(kind, *parts);
    if (!again || !std::equal(again->begin(), again->end(),
                              file.begin() + static_cast<std::ptrdiff_t>(found.codeSize), file.end())) {
        std::abort();
    }
    return 0;
}
