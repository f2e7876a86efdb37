#include "platform/facts/file_inside.h"

#include <utility>

#include <kestrelwood/KSWAdditions.h>

#include "platform/host/file_facts.h"

namespace ksw::facts {

namespace {

bool isBelow(std::string_view path, std::string_view folder) {
    folder = folder == "/" ? std::string_view() : folder;
    return path.starts_with(folder) && path.substr(folder.size()).starts_with('/') &&
           path.size() > folder.size() + 1;
}

/// Where the path leads, as far as it does; absent when ".." stands behind that. `path` is absolute.
std::optional<std::string> wayOf(std::string path) {
    Result<std::string> way = host::canonicalPath(path);
    while (!way) {
        const std::size_t slash = path.rfind('/');
        if (slash == std::string::npos || slash == 0 || path.substr(slash + 1) == "..") {
            return std::nullopt;
        }
        path.resize(slash);
        way = host::canonicalPath(path);
    }
    return std::move(*way);
}

/// Whether the kernel, which goes through links before it goes up, stays in the folder and comes to the same file
/// as its path without "..". Of a file that is not there yet the way to it counts.
bool staysBelow(const std::string& pathAsGiven, const std::string& path, const std::string& folder) {
    const Result<std::string> canonicalFolder = host::canonicalPath(folder);
    if (!canonicalFolder) {
        return true;
    }
    const std::optional<std::string> given = wayOf(pathAsGiven);
    return given && given == wayOf(path) && (given == *canonicalFolder || isBelow(*given, *canonicalFolder));
}

}  // namespace

std::optional<URL> fileInside(const URL& bundle, std::string_view relativePath) {
    if (!bundle.isFileURL() || relativePath.empty() || relativePath.starts_with('/')) {
        return std::nullopt;
    }
    const std::string folder = bundle.path();
    URL file = URL::fileURL(relativePath, URL::fileURL(folder, PathKind::Directory));
    const std::string path = file.path();
    const bool isInside =
        isBelow(path, folder) && staysBelow(folder + "/" + std::string(relativePath), path, folder);
    return isInside ? std::optional(std::move(file)) : std::nullopt;
}

std::optional<URL> fileOfItem(const URL& url, const std::optional<URL>& container) {
    if (!container) {
        return url;
    }
    const std::string path = url.relativePath();
    return path.starts_with('/') ? URL::fileURL(path) : fileInside(*container, path);
}

std::optional<URL> applicationAround(const std::string& path) {
    const URL url = URL::fileURL(path);
    std::optional<URL> application = __ksw_outerAppURL(url);
    if (!application) {
        return std::nullopt;
    }
    const std::vector<std::string> components = pathComponents(url.path());
    std::string inside;
    for (std::size_t next = pathComponents(application->path()).size(); next < components.size(); ++next) {
        inside += inside.empty() ? components[next] : "/" + components[next];
    }
    return inside.empty() || fileInside(*application, inside) ? application : std::nullopt;
}

}  // namespace ksw::facts
