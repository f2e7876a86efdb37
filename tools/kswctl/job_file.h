// job_file.h: what a job's property list says, as a launch configuration.
#pragma once

#include <string>

#include <kestrelwood/values.h>

#include "tools/common/outcome.h"

namespace tools::kswctl {

/// Reads the property list at the absolute `path`, XML or binary, and makes the configuration of it
/// (`ksw::configurationFromJob`). Complaint: the file cannot be read as a dictionary, or is no job.
Outcome<ksw::Dictionary> configurationOfJob(const std::string& path);

}  // namespace tools::kswctl
