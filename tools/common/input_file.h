// input_file.h: the files that a tool is given to read.
#pragma once

#include <string>

#include <kestrelwood/values.h>

#include "tools/common/outcome.h"

namespace tools {

/// Reads a file once, whole; a pipe will do. Complaint: it cannot be read, or is larger than 1 MiB.
Outcome<ksw::Data> readInputFile(const std::string& path);

}  // namespace tools
