#include "model/config/file_inside.h"

#include <string>

#include "platform/host/file_facts.h"

namespace ksw::config {

namespace {

bool isBelow(std::string_view path, std::string_view folder) {
    folder = folder == "/" ? std::string_view() : folder;
    return path.starts_with(folder) && path.substr(folder.size()).starts_with('/') &&
           path.size() > folder.size() + 1;
}

/// Whether the file is in the folder once links are followed; a file that is not there is in no other place.
bool staysBelow(const std::string& path, const std::string& folder) {
    const Result<std::string> file = host::canonicalPath(path);
    const Result<std::string> canonicalFolder = host::canonicalPath(folder);
    return !file || !canonicalFolder || isBelow(*file, *canonicalFolder);
}

}  // namespace

std::optional<URL> fileInside(const URL& bundle, std::string_view relativePath) {
    if (!bundle.isFileURL() || relativePath.empty() || relativePath.starts_with('/')) {
        return std::nullopt;
    }
    const std::string folder = bundle.path();
    URL file = URL::fileURL(relativePath, URL::fileURL(folder, PathKind::Directory));
    const std::string path = file.path();
    return isBelow(path, folder) && staysBelow(path, folder) ? std::optional(std::move(file)) : std::nullopt;
}

std::optional<URL> fileOfItem(const URL& url, const std::optional<URL>& container) {
    if (!container) {
        return url;
    }
    const std::string path = url.relativePath();
    return path.starts_with('/') ? URL::fileURL(path) : fileInside(*container, path);
}

}  // namespace ksw::config
