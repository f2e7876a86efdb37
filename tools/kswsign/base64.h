// base64.h: bytes as text.
#pragma once

#include <string>

#include <kestrelwood/values.h>

namespace tools::kswsign {

/// RFC 4648, section 4, padded.
std::string base64(ksw::Bytes bytes);

}  // namespace tools::kswsign
