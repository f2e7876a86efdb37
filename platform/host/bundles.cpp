#include "platform/host/bundles.h"

#include <algorithm>
#include <array>
#include <climits>
#include <utility>

#include <kestrelwood/values/url.h>

#include "platform/base/paths.h"

namespace ksw::host {

namespace {

constexpr std::array<std::string_view, 2> kExtensions = {kApplicationExtension, ".bundle"};

/// Cuts the last component off; what is left when it is `name`, else nothing.
std::optional<std::string_view> above(std::string_view path, std::string_view name) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos || path.substr(slash + 1) != name) {
        return std::nullopt;
    }
    return path.substr(0, slash);
}

}  // namespace

std::string_view bundleExtension(std::string_view path) {
    const std::string_view name = lastComponent(path);
    const auto* const found = std::find_if(kExtensions.begin(), kExtensions.end(), [&](std::string_view extension) {
        return name.size() > extension.size() && name.ends_with(extension);
    });
    return found == kExtensions.end() ? std::string_view() : *found;
}

std::optional<std::string> bundleOfExecutable(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    if (!path.starts_with('/') || slash + 1 == path.size()) {
        return std::nullopt;
    }
    const std::optional<std::string_view> contents = above(path.substr(0, slash), "Linux");
    const std::optional<std::string_view> bundle = contents ? above(*contents, "Contents") : std::nullopt;
    const bool isBundle = bundle && !bundle->ends_with('/') && !bundleExtension(*bundle).empty();
    return isBundle ? std::optional(std::string(*bundle)) : std::nullopt;
}

std::optional<std::string> applicationOfExecutable(std::string_view path) {
    std::optional<std::string> bundle = bundleOfExecutable(path);
    return bundle && bundleExtension(*bundle) == kApplicationExtension ? std::move(bundle) : std::nullopt;
}

std::vector<std::string> applicationsOnWay(std::string_view path) {
    std::vector<std::string> found;
    std::string way;
    for (const std::string& component : pathComponents(path)) {
        way += way.empty() || way == "/" ? component : "/" + component;
        // From here on no path leads anywhere.
        if (way.size() >= PATH_MAX) {
            break;
        }
        if (bundleExtension(component) == kApplicationExtension) {
            found.push_back(way);
        }
    }
    return found;
}

}  // namespace ksw::host
