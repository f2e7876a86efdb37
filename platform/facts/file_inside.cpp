#include "platform/facts/file_inside.h"

#include <climits>
#include <utility>
#include <vector>

#include <kestrelwood/KSWAdditions.h>

#include "platform/base/paths.h"
#include "platform/host/descriptor_path.h"
#include "platform/host/sys.h"

namespace ksw::facts {

namespace {

constexpr int kLookOnly = O_PATH;
/// Where no file ever is.
constexpr std::string_view kNowhere = "/proc/self/fd/-1";

/// A relative path with "." and ".." taken away; absent when nothing is left of it, or it goes up further than it
/// went down.
std::optional<std::string> withoutDots(std::string_view path) {
    std::vector<std::string> kept;
    for (std::string& component : pathComponents(std::string(path))) {
        if (component == "..") {
            if (kept.empty()) {
                return std::nullopt;
            }
            kept.pop_back();
        } else if (component != ".") {
            kept.push_back(std::move(component));
        }
    }
    std::string text;
    for (const std::string& component : kept) {
        text = text.empty() ? component : pathBelow(text, component);
    }
    return text.empty() ? std::nullopt : std::optional(std::move(text));
}

bool isSameFile(const UniqueFd& one, const UniqueFd& other) {
    const auto facts = host::sys::statx(one.get(), STATX_INO);
    const auto others = host::sys::statx(other.get(), STATX_INO);
    return facts && others && facts->stx_ino == others->stx_ino && facts->stx_dev_major == others->stx_dev_major &&
           facts->stx_dev_minor == others->stx_dev_minor;
}

/// For a kernel, or a filter of calls, without `openBeneath`: what was opened is held, and then asked where it
/// lies.
Result<UniqueFd> openAndCompare(const UniqueFd& folder, const std::string& path) {
    Result<UniqueFd> file = host::sys::openAt(folder.get(), path, kLookOnly);
    if (!file) {
        return file;
    }
    const Result<std::string> place = host::sys::readLink(host::descriptorPath(file->get()));
    const Result<std::string> folders = host::sys::readLink(host::descriptorPath(folder.get()));
    const bool isInside = place && folders && isAtOrBelow(*place, *folders);
    return isInside ? std::move(file) : host::sys::callError(EXDEV, "open", path);
}

Result<UniqueFd> openInside(const UniqueFd& folder, const std::string& path) {
    Result<UniqueFd> file = host::sys::openBeneath(folder.get(), path, kLookOnly);
    const bool isRefused =
        !file && (host::sys::isErrno(file.error(), ENOSYS) || host::sys::isErrno(file.error(), EPERM));
    return isRefused ? openAndCompare(folder, path) : std::move(file);
}

/// Where a path below a folder leads, as far as it does.
struct Way {
    UniqueFd end;
    bool isWhole = true;
};

/// Absent when the path leads out of the folder, and when ".." stands behind what is not there: nothing now, and
/// anything later.
std::optional<Way> wayBelow(const UniqueFd& folder, std::string path) {
    for (bool isWhole = true;; isWhole = false) {
        Result<UniqueFd> end = openInside(folder, path);
        if (end) {
            return Way{std::move(*end), isWhole};
        }
        const bool leadsOut =
            host::sys::isErrno(end.error(), EXDEV) || host::sys::isErrno(end.error(), EAGAIN) || path == ".";
        const std::size_t slash = path.rfind('/');
        if (leadsOut || path == ".." || path.ends_with("/..")) {
            return std::nullopt;
        }
        path = slash == std::string::npos ? "." : path.substr(0, slash);
    }
}

/// A bundle's path without "." and "..", if it is still the same folder's. Absent for what is no place.
std::optional<std::string> plainFolder(const std::string& path) {
    const std::optional<std::string> below = path.starts_with('/') ? withoutDots(path.substr(1)) : std::nullopt;
    if (!below) {
        return path.starts_with('/') && path.find_first_not_of('/') == std::string::npos
                   ? std::optional<std::string>("/")
                   : std::nullopt;
    }
    std::string plain = "/" + *below;
    if (path == plain) {
        return plain;
    }
    const Result<UniqueFd> given = host::sys::open(path, kLookOnly);
    const Result<UniqueFd> folder = host::sys::open(plain, kLookOnly);
    const bool isSame = given && folder ? isSameFile(*given, *folder) : !given && !folder;
    return isSame ? std::optional(std::move(plain)) : std::nullopt;
}

/// The kernel goes through links before it goes up, so a path may come to another file than the same path without
/// "..". Only one that comes to the same counts.
std::optional<Way> agreedWay(const UniqueFd& folder, const std::string& given, const std::string& plain) {
    std::optional<Way> way = wayBelow(folder, given);
    if (!way || given == plain) {
        return way;
    }
    const std::optional<Way> other = wayBelow(folder, plain);
    return other && other->isWhole == way->isWhole && isSameFile(way->end, other->end) ? std::move(way)
                                                                                       : std::nullopt;
}

std::optional<URL> urlOf(std::optional<FoundFile> file) {
    return file ? std::optional(std::move(file->url)) : std::nullopt;
}

}  // namespace

std::optional<FoundFile> findInside(const URL& bundle, std::string_view relativePath) {
    // To try a longer path than any of the kernel's, component by component, takes long and finds nothing.
    if (!bundle.isFileURL() || relativePath.starts_with('/') || relativePath.size() >= PATH_MAX) {
        return std::nullopt;
    }
    const std::optional<std::string> folder = plainFolder(bundle.path());
    const std::optional<std::string> plain = withoutDots(relativePath);
    if (!folder || !plain) {
        return std::nullopt;
    }
    FoundFile file{URL::fileURL(relativePath, URL::fileURL(*folder, PathKind::Directory)), URL::fileURL(kNowhere),
                   UniqueFd()};
    const Result<UniqueFd> held = host::sys::open(*folder, kLookOnly | O_DIRECTORY);
    if (!held) {
        return file;
    }
    std::optional<Way> way = agreedWay(*held, std::string(relativePath), *plain);
    if (!way) {
        return std::nullopt;
    }
    if (way->isWhole) {
        file.fd = std::move(way->end);
        file.readingURL = URL::fileURL(host::descriptorPath(file.fd.get()));
    }
    return file;
}

std::optional<URL> fileInside(const URL& bundle, std::string_view relativePath) {
    return urlOf(findInside(bundle, relativePath));
}

std::optional<FoundFile> findOfItem(const URL& url, const std::optional<URL>& container) {
    if (!container) {
        return FoundFile{url, url, UniqueFd()};
    }
    const std::string path = url.relativePath();
    if (path.starts_with('/')) {
        return FoundFile{URL::fileURL(path), URL::fileURL(path), UniqueFd()};
    }
    return findInside(*container, path);
}

std::optional<URL> fileOfItem(const URL& url, const std::optional<URL>& container) {
    return urlOf(findOfItem(url, container));
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
