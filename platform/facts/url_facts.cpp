// What a file's URL tells (KSWAdditions.h).
#include <kestrelwood/KSWAdditions.h>

#include "platform/base/paths.h"
#include "platform/facts/resource_values.h"
#include "platform/host/bundles.h"
#include "platform/host/trash.h"

namespace {

bool hasResource(const ksw::URL& url, std::string_view key) {
    return url.isFileURL() && ksw::facts::isResource(url.path(), key);
}

}  // namespace

std::optional<std::string> __ksw_localizedName(const ksw::URL& url) {
    if (!url.isFileURL()) {
        return std::nullopt;
    }
    std::optional<ksw::Value> value = ksw::facts::resourceValue(url.path(), ksw::kResourceKeyLocalizedName);
    auto* name = value ? value->as<std::string>() : nullptr;
    return name == nullptr ? std::nullopt : std::optional(std::move(*name));
}

bool __ksw_isInTrash(const ksw::URL& url) {
    if (!url.isFileURL()) {
        return false;
    }
    const auto relationship = ksw::host::relationshipOfTrash(url.path());
    return relationship && *relationship == ksw::host::Relationship::Contains;
}

std::optional<ksw::URL> __ksw_outerAppURL(const ksw::URL& url) {
    if (!url.isFileURL()) {
        return std::nullopt;
    }
    for (const std::string& path : ksw::host::applicationsOnWay(url.path())) {
        ksw::URL application = ksw::URL::fileURL(path, ksw::PathKind::Directory);
        if (__ksw_isApplication(application)) {
            return application;
        }
    }
    return std::nullopt;
}

std::optional<ksw::URL> __ksw_innerAppURL(const ksw::URL& url) {
    // The executable, the folder of its platform and the folder of the contents.
    constexpr int kInside = 3;
    const std::string executable = url.path();
    std::string_view path = executable;
    for (int above = 0; above < kInside; ++above) {
        path = ksw::folderOf(path);
    }
    if (!url.isFileURL() || path.empty()) {
        return std::nullopt;
    }
    ksw::URL app = ksw::URL::fileURL(path, ksw::PathKind::Directory);
    return __ksw_isApplication(app) ? std::optional(std::move(app)) : std::nullopt;
}

bool __ksw_isBundle(const ksw::URL& url) {
    return hasResource(url, ksw::kResourceKeyIsPackage);
}

bool __ksw_isApplication(const ksw::URL& url) {
    return url.isFileURL() && ksw::host::bundleExtension(url.path()) == ksw::host::kApplicationExtension &&
           hasResource(url, ksw::kResourceKeyIsApplication);
}
