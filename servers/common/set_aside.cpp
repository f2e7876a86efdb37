#include "servers/common/set_aside.h"

#include <algorithm>

#include "platform/host/clock.h"
#include "platform/host/sys_files.h"
#include "servers/common/store_file.h"

namespace ksw::servers {

namespace {

constexpr std::string_view kPrefix = "set-aside-";

/// More in one second is no accident.
constexpr int kFoldersPerSecondMax = 100;

Result<bool> isThere(const std::string& path) {
    const Result<struct ::statx> facts = host::sys::statx(path, AT_SYMLINK_NOFOLLOW, STATX_TYPE);
    if (!facts) {
        return host::sys::isErrno(facts.error(), ENOENT) ? Result<bool>(false) : facts.error();
    }
    return true;
}

std::string nameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

/// "20260731-235959", in UTC.
std::string timeStamp() {
    std::string stamp = host::systemClock().wall().string().substr(0, sizeof "2026-07-31 23:59:59" - 1);
    stamp.erase(std::remove_if(stamp.begin(), stamp.end(), [](char c) { return c == '-' || c == ':'; }),
                stamp.end());
    std::replace(stamp.begin(), stamp.end(), ' ', '-');
    return stamp;
}

/// Whether what has to be moved can go into the folder without taking something's place.
Result<bool> hasRoom(const std::string& folder, const std::string& path) {
    for (const std::string_view ending : kStoreFileEndings) {
        const Result<bool> source = isThere(path + std::string(ending));
        const Result<bool> target = isThere(folder + "/" + nameOf(path) + std::string(ending));
        if (!source || !target) {
            return source ? target.error() : source.error();
        }
        if (*source && *target) {
            return false;
        }
    }
    return true;
}

Result<std::string> makeFolder(const std::string& path) {
    const std::string first = folderOf(path) + std::string(kPrefix) + timeStamp();
    std::string folder = first;
    for (int number = 2; number <= kFoldersPerSecondMax; ++number) {
        Status made = host::sys::makeDirectory(folder, 0700);
        if (made) {
            return folder;
        }
        if (!host::sys::isErrno(made.error(), EEXIST)) {
            return made.error();
        }
        folder = first + "-" + std::to_string(number);
    }
    return host::sys::callError(EEXIST, "mkdir", first);
}

/// The folder that a former call did not come to an end with, else a new one.
Result<std::string> takeFolder(const std::string& path) {
    const Result<std::vector<std::string>> folders = setAsideFolders(path);
    if (!folders) {
        return folders.error();
    }
    for (const std::string& folder : *folders) {
        const Result<bool> fits = hasRoom(folder, path);
        if (!fits) {
            return fits.error();
        }
        if (*fits) {
            return folder;
        }
    }
    return makeFolder(path);
}

/// That the folder is there, what is in it, and what is gone from beside it.
Status synchronise(const std::string& folder) {
    Status done = host::sys::syncFolder(folder);
    return done ? host::sys::syncFolder(folderOf(folder)) : done;
}

}  // namespace

Result<std::vector<std::string>> setAsideFolders(const std::string& path) {
    const Result<std::vector<std::string>> names = host::sys::namesIn(folderOf(path));
    if (!names) {
        return names.error();
    }
    std::vector<std::string> folders;
    for (const std::string& name : *names) {
        if (name.starts_with(kPrefix)) {
            folders.push_back(folderOf(path) + name);
        }
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

Result<std::string> setAside(const std::string& path) {
    Result<std::string> folder = takeFolder(path);
    if (!folder) {
        return folder;
    }
    if (Status marked = synchronise(*folder); !marked) {
        return marked.error();
    }
    for (const std::string_view ending : kStoreFileEndings) {
        const std::string source = path + std::string(ending);
        Status moved = host::sys::rename(source, *folder + "/" + nameOf(source));
        if (moved) {
            moved = synchronise(*folder);
        } else if (host::sys::isErrno(moved.error(), ENOENT)) {
            moved = {};
        }
        if (!moved) {
            return moved.error();
        }
    }
    return folder;
}

}  // namespace ksw::servers
