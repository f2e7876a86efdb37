#include "platform/host/host_root.h"

#include <algorithm>
#include <optional>

#include <unistd.h>

#include "platform/base/paths.h"
#include "platform/host/environment.h"
#include "platform/host/file_facts.h"
#include "platform/host/hidden_root.h"
#include "platform/host/sys.h"

namespace ksw::host {

namespace {

constexpr std::size_t kServiceNameMax = 200;  // a file name has 255 bytes; the rest is for temporary names
constexpr std::string_view kRunFolderName = "kestrelwood";

}  // namespace

std::string hostRoot() {
    std::optional<std::string> given = environmentVariable("KESTRELWOOD_ROOT");
    if (!given || given->empty()) {
        return {};
    }
    Result<std::string> canonical = canonicalPath(*given);
    std::string root = canonical ? std::move(*canonical) : std::move(*given);
    while (root.ends_with('/')) {
        root.pop_back();
    }
    return root;
}

std::string hostPath(std::string_view path) {
    return hostRoot().append(path);
}

std::string hostPathOfNamed(std::string_view path) {
    std::string root = hostRoot();
    return isAtOrBelow(path, root) ? std::string(path) : root.append(path);
}

Uid hostRootOwner() {
    const std::string root = hostRoot();
    if (root.empty()) {
        return 0;
    }
    const Result<struct ::statx> facts = sys::statx(root, 0, STATX_UID);
    return facts ? ownerAt(root, facts->stx_uid) : kNoUser;
}

bool isServiceName(std::string_view name) {
    return !name.empty() && name.size() <= kServiceNameMax && name.front() != '.' &&
           std::all_of(name.begin(), name.end(), [](char c) {
               return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                      c == '-' || c == '_';
           });
}

std::string systemRunFolder() {
    return pathBelow(hostPath("/run"), kRunFolderName);
}

std::string sessionRunFolder() {
    const std::optional<std::string> given = environmentVariable("XDG_RUNTIME_DIR");
    if (!given || !given->starts_with('/')) {
        return userRunFolder(::geteuid());
    }
    return pathBelow(hostPathOfNamed(*given), kRunFolderName);
}

std::string userRunFolder(Uid uid) {
    return pathBelow(pathBelow(hostPath("/run/user"), std::to_string(uid)), kRunFolderName);
}

std::string systemServicePath(std::string_view name) {
    return pathBelow(systemRunFolder(), name);
}

std::string sessionServicePath(std::string_view name) {
    return pathBelow(sessionRunFolder(), name);
}

std::string userServicePath(Uid uid, std::string_view name) {
    return pathBelow(userRunFolder(uid), name);
}

}  // namespace ksw::host
