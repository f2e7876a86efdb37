#include "platform/host/bundles.h"

#include <algorithm>
#include <array>

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
    while (path.ends_with('/')) {
        path.remove_suffix(1);
    }
    const std::string_view name = path.substr(path.rfind('/') + 1);
    const auto* const found = std::find_if(kExtensions.begin(), kExtensions.end(), [&](std::string_view extension) {
        return name.size() > extension.size() && name.ends_with(extension);
    });
    return found == kExtensions.end() ? std::string_view() : *found;
}

std::optional<std::string> applicationOfExecutable(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    if (!path.starts_with('/') || slash + 1 == path.size()) {
        return std::nullopt;
    }
    const std::optional<std::string_view> contents = above(path.substr(0, slash), "Linux");
    const std::optional<std::string_view> bundle = contents ? above(*contents, "Contents") : std::nullopt;
    const bool isApplication =
        bundle && !bundle->ends_with('/') && bundleExtension(*bundle) == kApplicationExtension;
    return isApplication ? std::optional(std::string(*bundle)) : std::nullopt;
}

}  // namespace ksw::host
