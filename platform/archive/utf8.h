// utf8.h: is it UTF-8?
#pragma once

#include <string_view>

namespace ksw::archive {

/// Whether the text is UTF-8 (RFC 3629): no overlong forms, no surrogates, nothing beyond U+10FFFF.
bool isUtf8(std::string_view text);

}  // namespace ksw::archive
