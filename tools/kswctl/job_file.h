// job_file.h: what a job's property list says, as a launch configuration.
#pragma once

#include <string>

#include <kestrelwood/values.h>

#include "tools/common/outcome.h"

namespace tools::kswctl {

/// Reads the property list at the absolute `path`, XML or binary, and makes the configuration of the keys that
/// count: "Label" (required), "Program", "ProgramArguments", "BundleProgram", "AssociatedBundleIdentifiers". The
/// executable is the program, else the first argument, else the program inside the bundle.
/// Complaint: the file cannot be read as a dictionary, or one of these keys has a value of the wrong type.
Outcome<ksw::Dictionary> configurationOfJob(const std::string& path);

}  // namespace tools::kswctl
