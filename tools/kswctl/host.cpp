#include "tools/kswctl/host.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string_view>

namespace tools::kswctl {
namespace {

std::string variable(const char* name) {
    const char* value = secure_getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

std::string hostRoot() {
    std::string root = variable("KESTRELWOOD_ROOT");
    while (root.ends_with('/')) {
        root.pop_back();
    }
    return root;
}

}  // namespace

std::string hostPlace(const std::string& path) {
    return hostRoot() + path;
}

std::string sessionRunFolder() {
    std::string folder = variable("XDG_RUNTIME_DIR");
    if (!folder.starts_with('/')) {
        folder = "/run/user/" + std::to_string(geteuid());
    }
    const std::string root = hostRoot();
    if (!folder.starts_with(root + "/")) {
        folder.insert(0, root);
    }
    return isThere(folder) ? folder + "/kestrelwood" : std::string();
}

uid_t hostOwner() {
    const std::string root = hostRoot();
    struct stat facts {};
    return !root.empty() && stat(root.c_str(), &facts) == 0 ? facts.st_uid : 0;
}

bool isThere(const std::string& path) {
    std::error_code problem;
    return std::filesystem::exists(path, problem);
}

bool hasServiceManager() {
    return isThere(hostPlace("/run/systemd/system"));
}

std::string shellWord(const std::string& path) {
    constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-+=:@%,";
    if (!path.empty() && path.find_first_not_of(kPlain) == std::string::npos) {
        return path;
    }
    std::string word = "'";
    for (const char c : path) {
        word += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return word + "'";
}

std::string startCommand() {
    return hasServiceManager() ? "systemctl enable --now kestrelwoodd.service" : "kestrelwoodd &";
}

std::string restartCommand() {
    return hasServiceManager() ? "systemctl restart kestrelwoodd.service"
                               : "pkill -x kestrelwoodd; pidwait -x kestrelwoodd; kestrelwoodd &";
}

}  // namespace tools::kswctl
