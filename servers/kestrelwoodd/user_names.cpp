#include "servers/kestrelwoodd/user_names.h"

#include <optional>
#include <utility>

#include "platform/host/user_database.h"

namespace ksw::daemon {

namespace {

constexpr std::string_view kSystem = "system";
constexpr std::string_view kNumbered = "uid-";

}  // namespace

std::string numberedUserName(Uid uid) {
    return std::string(kNumbered) + std::to_string(uid);
}

std::string userNameOf(Uid uid) {
    if (uid == kEveryUser) {
        return std::string(kSystem);
    }
    std::optional<host::UserEntry> entry = host::userEntry(uid);
    std::string name = entry ? std::move(entry->name) : std::string();
    const bool readsLikeAnother = name == kSystem || name.starts_with(kNumbered);
    return name.empty() || readsLikeAnother ? numberedUserName(uid) : name;
}

}  // namespace ksw::daemon
