#include "tools/kswsign/base64.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace tools::kswsign {

std::string base64(ksw::Bytes bytes) {
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    while (!bytes.empty()) {
        const std::size_t count = std::min<std::size_t>(bytes.size(), 3);
        std::uint32_t group = 0;
        for (std::size_t index = 0; index < 3; ++index) {
            group = group << 8U | (index < count ? bytes[index] : 0U);
        }
        for (std::size_t index = 0; index < 4; ++index) {
            text += index <= count ? kDigits[group >> (18 - 6 * index) & 63U] : '=';
        }
        bytes = bytes.subspan(count);
    }
    return text;
}

}  // namespace tools::kswsign
