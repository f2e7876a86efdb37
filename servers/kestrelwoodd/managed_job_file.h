// managed_job_file.h: what the file of a job says that device management installs.
#pragma once

#include <string>

#include "servers/kestrelwoodd/launch_item.h"

namespace ksw::daemon {

struct JobOfFile {
    std::string label;
    ItemFacts facts;
};

/// Reads a job's file: an agent's when the folder that it lies in has a name that ends in "agents", in letters of
/// either case, else a daemon's. Blocks for the reading of the file and of the job's code. Error: -98 in
/// KSWErrorDomain for a path that does not begin at the root, and a file that describes no job; -95 when there is
/// no file.
Result<JobOfFile> readManagedJob(const std::string& path, const Caller& caller);

}  // namespace ksw::daemon
