#include "platform/host/sys_lookup.h"

#include <array>
#include <climits>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/host/sys_files.h"

namespace ksw::host::sys {

namespace {

bool hasNul(const std::string& path) {
    return path.find('\0') != std::string::npos;
}

/// Room for a handle: the kernel's head with the bytes right behind it.
struct HandleRoom {
    alignas(::file_handle) std::array<unsigned char, sizeof(::file_handle) + kFileHandleMax> bytes{};

    ::file_handle* handle() { return reinterpret_cast<::file_handle*>(bytes.data()); }
    unsigned char* content() { return bytes.data() + offsetof(::file_handle, f_handle); }
};

}  // namespace

Result<UniqueFd> openIfKnown(const std::string& path, Links links) {
    return openIfKnownAt(AT_FDCWD, path, links);
}

Result<UniqueFd> openIfKnownAt(int folder, const std::string& path, Links links) {
    if (hasNul(path)) {
        return callError(EINVAL, "open", path.c_str());
    }
    open_how how{};
    how.flags = O_PATH | O_CLOEXEC | (links == Links::TakeLast ? O_NOFOLLOW : 0);
    how.resolve = RESOLVE_CACHED | (links == Links::Refuse ? RESOLVE_NO_SYMLINKS : 0U);
    UniqueFd fd(static_cast<int>(retried(
        Call::Open, [&](std::size_t) { return ::syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how); })));
    if (!fd) {
        return callError(errno, "open", path);
    }
    return fd;
}

Result<struct ::statx> statxAt(int folder, const std::string& name, unsigned mask) {
    struct ::statx facts {};
    constexpr int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;
    if (retried(Call::Statx, [&](std::size_t) { return ::statx(folder, name.c_str(), flags, mask, &facts); }) < 0) {
        return callError(errno, "statx", name);
    }
    return facts;
}

Result<std::string> readLink(int link) {
    std::array<char, PATH_MAX> buffer{};
    const ssize_t length =
        retried(Call::ReadLink, [&](std::size_t) { return ::readlinkat(link, "", buffer.data(), buffer.size()); });
    if (length < 0) {
        return callError(errno, "readlink", link);
    }
    if (static_cast<std::size_t>(length) == buffer.size()) {
        return callError(ENAMETOOLONG, "readlink", link);
    }
    return std::string(buffer.data(), static_cast<std::size_t>(length));
}

Result<struct ::statfs> volumeStatus(int fd) {
    struct ::statfs facts {};
    if (retried(Call::StatFs, [&](std::size_t) { return ::fstatfs(fd, &facts); }) < 0) {
        return callError(errno, "fstatfs", fd);
    }
    return facts;
}

Status checkExecutable(const std::string& path) {
    if (hasNul(path)) {
        return callError(EINVAL, "faccessat", path.c_str());
    }
    if (retried(Call::Access, [&](std::size_t) { return ::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS); }) <
        0) {
        return callError(errno, "faccessat", path);
    }
    return {};
}

Result<FileHandle> fileHandle(const std::string& path) {
    if (hasNul(path)) {
        return callError(EINVAL, "name_to_handle_at", path.c_str());
    }
    HandleRoom room;
    room.handle()->handle_bytes = kFileHandleMax;
    int mount = 0;
    if (retried(Call::FileHandle, [&](std::size_t) {
            return ::name_to_handle_at(AT_FDCWD, path.c_str(), room.handle(), &mount, AT_SYMLINK_FOLLOW);
        }) < 0) {
        return callError(errno, "name_to_handle_at", path);
    }
    const unsigned char* bytes = room.content();
    return FileHandle{room.handle()->handle_type, Data(bytes, bytes + room.handle()->handle_bytes)};
}

Result<UniqueFd> openByHandle(int folder, int type, Bytes handle) {
    if (handle.empty() || handle.size() > kFileHandleMax) {
        return callError(EINVAL, "open_by_handle_at", folder);
    }
    HandleRoom room;
    room.handle()->handle_bytes = static_cast<unsigned>(handle.size());
    room.handle()->handle_type = type;
    std::memcpy(room.content(), handle.data(), handle.size());
    UniqueFd fd(retried(Call::FileHandle, [&](std::size_t) {
        return ::open_by_handle_at(folder, room.handle(), O_PATH | O_CLOEXEC);
    }));
    if (!fd) {
        return callError(errno, "open_by_handle_at", folder);
    }
    return fd;
}

Result<FolderEntries> FolderEntries::open(const std::string& folder, int flags) {
    Result<UniqueFd> fd = sys::open(folder, O_RDONLY | O_DIRECTORY | O_NONBLOCK | flags);
    return fd ? adopt(std::move(*fd), folder) : Result<FolderEntries>(fd.error());
}

Result<FolderEntries> FolderEntries::adopt(UniqueFd fd, const std::string& folder) {
    std::unique_ptr<DIR, Closer> stream(::fdopendir(fd.get()));
    if (stream == nullptr) {
        return callError(errno, "fdopendir", folder);
    }
    static_cast<void>(fd.release());
    return FolderEntries(folder, std::move(stream));
}

Result<std::optional<std::string>> FolderEntries::next() {
    while (true) {
        errno = 0;
        const dirent* const entry = ::readdir(stream_.get());
        if (entry == nullptr) {
            return errno == 0 ? Result(std::optional<std::string>()) : callError(errno, "readdir", folder_);
        }
        if (std::string name = entry->d_name; name != "." && name != "..") {
            return std::optional(std::move(name));
        }
    }
}

int FolderEntries::fd() const {
    return ::dirfd(stream_.get());
}

}  // namespace ksw::host::sys
