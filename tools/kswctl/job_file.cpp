#include "tools/kswctl/job_file.h"

#include <optional>

#include <kestrelwood/KSWFunctions.h>

namespace tools::kswctl {

Outcome<ksw::Dictionary> configurationOfJob(const std::string& path) {
    std::optional<ksw::Error> error;
    const std::optional<ksw::Dictionary> job = ksw::readPropertyListFile(ksw::URL::fileURL(path), &error);
    std::optional<ksw::Dictionary> configuration = job ? ksw::configurationFromJob(*job, &error) : std::nullopt;
    if (!configuration) {
        return Complaint{ExitStatus::Failed,
                         path + ": " + (error ? std::string(error->localizedDescription()) : "cannot be read")};
    }
    return std::move(*configuration);
}

}  // namespace tools::kswctl
