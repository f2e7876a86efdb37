#include "platform/host/home_folder.h"

#include <cerrno>
#include <vector>

#include <pwd.h>
#include <unistd.h>

#include "platform/base/limits.h"
#include "platform/host/environment.h"
#include "platform/host/host_root.h"

namespace ksw::host {

namespace {

std::optional<std::string> homeInDatabase(Uid uid) {
    for (std::size_t size = 1024; size <= limits::kFieldMax; size *= 2) {
        std::vector<char> buffer(size);
        passwd entry{};
        passwd* found = nullptr;
        const int error = ::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found);
        if (error != ERANGE) {
            const bool isKnown = error == 0 && found != nullptr && found->pw_dir != nullptr;
            return isKnown ? std::optional<std::string>(found->pw_dir) : std::nullopt;
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> homeFolder(Uid uid) {
    std::optional<std::string> home = uid == ::geteuid() ? environmentVariable("HOME") : std::nullopt;
    if (!home || !home->starts_with('/')) {
        home = homeInDatabase(uid);
    }
    if (!home || !home->starts_with('/')) {
        return std::nullopt;
    }
    return hostPathOfNamed(*home);
}

}  // namespace ksw::host
