#include "platform/host/feature_flags.h"

#include <array>
#include <cerrno>
#include <optional>
#include <string>

#include "platform/base/limits.h"
#include "platform/host/file_facts.h"
#include "platform/host/host_root.h"
#include "platform/host/log.h"
#include "platform/host/sys_call.h"

namespace ksw::host {

namespace {

constexpr std::array<std::string_view, 2> kFolders{"/etc/kestrelwood/features/",
                                                   "/usr/share/kestrelwood/features/"};

void logDamaged(const std::string& path, const Error& error) {
    mainLog.error("Feature flags at %{public}@ cannot be read: %{public}@", path, error);
}

/// The feature in one file; absent when the file has no word on it.
std::optional<bool> featureIn(const std::string& path, std::string_view feature, PropertyListReader read) {
    const Result<Data> bytes = readFile(path, limits::kPropertyListFileMax);
    if (!bytes) {
        if (!sys::isErrno(bytes.error(), ENOENT)) {
            logDamaged(path, bytes.error());
        }
        return std::nullopt;
    }
    const Result<Value> list = read(*bytes);
    if (!list) {
        logDamaged(path, list.error());
        return std::nullopt;
    }
    const auto* flags = list->as<Dictionary>();
    if (flags == nullptr) {
        logDamaged(path, Error(FormatError::WrongType, "not a dictionary"));
        return std::nullopt;
    }
    const auto found = flags->find(feature);
    if (found == flags->end()) {
        return std::nullopt;
    }
    const bool* flag = found->second.as<bool>();
    if (flag == nullptr) {
        logDamaged(path, Error(FormatError::WrongType, "a feature is not a bool"));
        return std::nullopt;
    }
    return *flag;
}

}  // namespace

bool isFeatureEnabled(std::string_view domain, std::string_view feature, PropertyListReader read) {
    for (std::string_view folder : kFolders) {
        std::string path = hostPath(folder);
        path += domain;
        path += ".plist";
        if (const std::optional<bool> flag = featureIn(path, feature, read)) {
            return *flag;
        }
    }
    return true;
}

}  // namespace ksw::host
