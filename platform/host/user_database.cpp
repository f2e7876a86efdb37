#include "platform/host/user_database.h"

#include <cerrno>
#include <vector>

#include <pwd.h>

#include "platform/base/limits.h"

namespace ksw::host {

namespace {

std::string textOf(const char* text) {
    return text == nullptr ? std::string() : std::string(text);
}

}  // namespace

std::optional<UserEntry> userEntry(Uid uid) {
    for (std::size_t size = 1024; size <= limits::kFieldMax; size *= 2) {
        std::vector<char> buffer(size);
        passwd entry{};
        passwd* found = nullptr;
        const int error = ::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found);
        if (error != ERANGE) {
            const bool isKnown = error == 0 && found != nullptr;
            return isKnown ? std::optional(UserEntry{textOf(found->pw_name), textOf(found->pw_dir)}) : std::nullopt;
        }
    }
    return std::nullopt;
}

}  // namespace ksw::host
