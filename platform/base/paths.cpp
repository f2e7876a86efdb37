#include "platform/base/paths.h"

namespace ksw {

std::string_view withoutEndSlashes(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) {
        path.remove_suffix(1);
    }
    return path;
}

std::string_view lastComponent(std::string_view path) {
    path = withoutEndSlashes(path);
    return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

std::string_view folderOf(std::string_view path) {
    path = withoutEndSlashes(path);
    const std::size_t slash = path.rfind('/');
    if (path == "/" || slash == std::string_view::npos) {
        return {};
    }
    return withoutEndSlashes(path.substr(0, slash == 0 ? 1 : slash));
}

std::string pathBelow(std::string_view folder, std::string_view name) {
    std::string path(folder);
    if (!path.ends_with('/')) {
        path += '/';
    }
    path += name;
    return path;
}

bool isAtOrBelow(std::string_view path, std::string_view folder) {
    folder = folder == "/" ? std::string_view() : folder;
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

}  // namespace ksw
