#include "servers/kestrelwoodd/user_names.h"

#include <pwd.h>

#include <cerrno>
#include <vector>

#include "platform/base/limits.h"

namespace ksw::daemon {

namespace {

constexpr std::string_view kSystem = "system";
constexpr std::string_view kNumbered = "uid-";

std::string nameInDatabase(Uid uid) {
    for (std::size_t size = 1024; size <= limits::kFieldMax; size *= 2) {
        std::vector<char> buffer(size);
        passwd entry{};
        passwd* found = nullptr;
        const int error = getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found);
        if (error != ERANGE) {
            return error == 0 && found != nullptr && found->pw_name != nullptr ? found->pw_name : "";
        }
    }
    return "";
}

}  // namespace

std::string numberedUserName(Uid uid) {
    return std::string(kNumbered) + std::to_string(uid);
}

std::string userNameOf(Uid uid) {
    if (uid == kEveryUser) {
        return std::string(kSystem);
    }
    std::string name = nameInDatabase(uid);
    const bool readsLikeAnother = name == kSystem || name.starts_with(kNumbered);
    return name.empty() || readsLikeAnother ? numberedUserName(uid) : name;
}

}  // namespace ksw::daemon
