// checks.h: what must hold on a host so that its background items are managed.
#pragma once

#include <string>
#include <vector>

namespace tools::kswctl {

/// What a check has found: all is well, something that not every host needs is missing, or something is wrong.
enum class Finding { Well, Missing, Wrong };

struct Check {
    std::string about;
    Finding finding = Finding::Well;
    std::string detail;
    std::string mend;  ///< The command that mends it; empty when there is nothing to mend.
};

/// What is installed, readable and whole: the library, features, texts, attribution tables, the library that reads
/// signatures.
std::vector<Check> checkInstallation();

/// Whether the daemon's services answer, and the caller's agent and notifications where there is a session.
std::vector<Check> checkServices();

/// Whether only an administrator can change the places that everybody relies on, whose signatures hold, and whether
/// records were lost.
std::vector<Check> checkTrust();

}  // namespace tools::kswctl
