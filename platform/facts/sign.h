// sign.h: puts signatures into files and takes them out.
#pragma once

#include <string>

#include <kestrelwood/code_signing.h>

#include "platform/base/result.h"

namespace ksw::facts {

/// As `ksw::signCode`. Error: `CodeStatus`.
Status sign(const std::string& path, const SigningRequest& request);

/// As `ksw::stripSignature`; `Unsigned` when there is none.
Status strip(const std::string& path);

}  // namespace ksw::facts
