// subject.h: which item a request is about, in the terms of the manager's operations.
#pragma once

#include <cstdint>
#include <optional>

#include <kestrelwood/values.h>

#include "tools/common/outcome.h"
#include "tools/kswctl/options.h"

namespace tools::kswctl {

/// The parameters that the operations on one item share.
struct Subject {
    std::optional<ksw::URL> bundleURL;  ///< The application; absent for a legacy item.
    ksw::URL itemURL;                   ///< Relative to the application, absolute for a legacy item.
    std::int64_t type = 0;
    std::optional<ksw::Dictionary> configuration;
    ksw::Uid uid = 0;
};

/// Whether the job's property list is read. Withdrawing a job must work when its file is gone.
enum class JobFile { Read, LeftAlone };

/// Finds out what the command line means: where the job file and the application really are, and what the file
/// says. A login item may be an application instead of a job file; then there is no configuration.
/// Complaint (wrong usage): the job lies outside its application, or the type does not go with these places.
/// Complaint (failed): the job file cannot be read.
Outcome<Subject> subjectOf(const Options& options, JobFile jobFile);

}  // namespace tools::kswctl
