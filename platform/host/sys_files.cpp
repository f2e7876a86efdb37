#include "platform/host/sys_files.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <utility>

#include <linux/openat2.h>
#include <sys/mman.h>
#include <sys/syscall.h>

#include "platform/host/sys_lookup.h"

namespace ksw::host::sys {

namespace {

Status checkPath(const std::string& path, std::string_view name) {
    if (path.find('\0') != std::string::npos) {
        return callError(EINVAL, name, path.c_str());
    }
    return {};
}

/// A call whose only answer is whether it worked.
template <class Function>
Status pathCall(Call call, std::string_view name, const std::string& path, Function function) {
    if (Status status = checkPath(path, name); !status) {
        return status;
    }
    if (retried(call, [&](std::size_t) { return function(path.c_str()); }) < 0) {
        return callError(errno, name, path);
    }
    return {};
}

template <class Function>
Status descriptorCall(Call call, std::string_view name, int fd, Function function) {
    if (retried(call, [&](std::size_t) { return function(fd); }) < 0) {
        return callError(errno, name, fd);
    }
    return {};
}

/// Whether there is no such call: ENOSYS before Linux 5.6, EPERM in a sandbox whose filter of calls is older.
bool isUnknownCall(const Error& error) {
    return isErrno(error, ENOSYS) || isErrno(error, EPERM);
}

Result<UniqueFd> openResolving(int folder, const std::string& path, int flags, std::uint64_t resolve) {
    if (Status status = checkPath(path, "open"); !status) {
        return status.error();
    }
    open_how how{};
    how.flags = static_cast<std::uint64_t>(flags) | O_CLOEXEC;
    how.resolve = resolve;
    UniqueFd fd(static_cast<int>(retried(
        Call::Open, [&](std::size_t) { return ::syscall(SYS_openat2, folder, path.c_str(), &how, sizeof how); })));
    if (!fd) {
        return callError(errno, "open", path);
    }
    return fd;
}

}  // namespace

Result<UniqueFd> open(const std::string& path, int flags, mode_t mode) {
    return openAt(AT_FDCWD, path, flags, mode);
}

Result<UniqueFd> openAt(int folder, const std::string& name, int flags, mode_t mode) {
    if (Status status = checkPath(name, "open"); !status) {
        return status.error();
    }
    UniqueFd fd(
        retried(Call::Open, [&](std::size_t) { return ::openat(folder, name.c_str(), flags | O_CLOEXEC, mode); }));
    if (!fd) {
        return callError(errno, "open", name);
    }
    return fd;
}

Result<UniqueFd> openWithoutLinks(const std::string& path, int flags) {
    Result<UniqueFd> file = openResolving(AT_FDCWD, path, flags, RESOLVE_NO_SYMLINKS);
    return file || !isUnknownCall(file.error()) ? std::move(file) : open(path, flags | O_NOFOLLOW);
}

Result<UniqueFd> openBeneath(int folder, const std::string& path, int flags) {
    // A rename on the way makes the kernel ask for another try when the path goes up.
    constexpr int kTries = 32;
    Result<UniqueFd> file = openResolving(folder, path, flags, RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS);
    for (int tries = 1; tries < kTries && !file && isErrno(file.error(), EAGAIN); ++tries) {
        file = openResolving(folder, path, flags, RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS);
    }
    return file;
}

Result<Transfer> read(int fd, void* buffer, std::size_t size) {
    const ssize_t returned =
        retried(Call::Read, [&](std::size_t lengthMax) { return ::read(fd, buffer, std::min(size, lengthMax)); });
    return transferOf(returned, "read", fd);
}

Result<Transfer> write(int fd, const void* bytes, std::size_t size) {
    const ssize_t returned =
        retried(Call::Write, [&](std::size_t lengthMax) { return ::write(fd, bytes, std::min(size, lengthMax)); });
    return transferOf(returned, "write", fd);
}

Result<struct ::stat> fileStatus(int fd) {
    struct ::stat facts {};
    if (retried(Call::FileStatus, [&](std::size_t) { return ::fstat(fd, &facts); }) < 0) {
        return callError(errno, "fstat", fd);
    }
    return facts;
}

Result<struct ::statx> statx(const std::string& path, int flags, unsigned mask) {
    struct ::statx facts {};
    Status status = pathCall(Call::Statx, "statx", path,
                             [&](const char* text) { return ::statx(AT_FDCWD, text, flags, mask, &facts); });
    if (!status) {
        return status.error();
    }
    return facts;
}

Result<struct ::statx> statx(int fd, unsigned mask) {
    struct ::statx facts {};
    Status status = descriptorCall(Call::Statx, "statx", fd,
                                   [&](int file) { return ::statx(file, "", AT_EMPTY_PATH, mask, &facts); });
    if (!status) {
        return status.error();
    }
    return facts;
}

Result<std::string> readLink(const std::string& path) {
    std::array<char, PATH_MAX> buffer{};
    ssize_t length = 0;
    Status status = pathCall(Call::ReadLink, "readlink", path, [&](const char* text) {
        length = ::readlink(text, buffer.data(), buffer.size());
        return length;
    });
    if (!status) {
        return status.error();
    }
    if (static_cast<std::size_t>(length) == buffer.size()) {
        return callError(ENAMETOOLONG, "readlink", path);
    }
    return std::string(buffer.data(), static_cast<std::size_t>(length));
}

Result<bool> isWithoutLinks(const std::string& path) {
    const Result<UniqueFd> file = openResolving(AT_FDCWD, path, O_PATH, RESOLVE_NO_SYMLINKS);
    if (file) {
        return true;
    }
    if (isErrno(file.error(), ELOOP) || isUnknownCall(file.error())) {
        return false;
    }
    return file.error();
}

Result<std::string> realPath(const std::string& path) {
    std::array<char, PATH_MAX> buffer{};
    Status status = pathCall(Call::ReadLink, "realpath", path,
                             [&](const char* text) { return ::realpath(text, buffer.data()) == nullptr ? -1 : 0; });
    if (!status) {
        return status.error();
    }
    return std::string(buffer.data());
}

Result<std::vector<std::string>> namesIn(const std::string& folder) {
    Result<FolderEntries> entries = FolderEntries::open(folder);
    if (!entries) {
        return entries.error();
    }
    std::vector<std::string> names;
    while (true) {
        Result<std::optional<std::string>> name = entries->next();
        if (!name) {
            return name.error();
        }
        if (!*name) {
            return names;
        }
        names.push_back(std::move(**name));
    }
}

Status syncFile(int fd) {
    return descriptorCall(Call::FileSync, "fsync", fd, ::fsync);
}

Status syncFolder(const std::string& folder) {
    Result<UniqueFd> fd = open(folder, O_RDONLY | O_DIRECTORY);
    if (!fd) {
        return fd.error();
    }
    Status synchronised = syncFile(fd->get());
    return !synchronised && isErrno(synchronised.error(), EINVAL) ? Status() : synchronised;
}

Status syncData(int fd) {
    return descriptorCall(Call::DataSync, "fdatasync", fd, ::fdatasync);
}

Status rename(const std::string& from, const std::string& to) {
    if (Status status = checkPath(to, "rename"); !status) {
        return status;
    }
    return pathCall(Call::Rename, "rename", from, [&](const char* text) { return ::rename(text, to.c_str()); });
}

Status unlink(const std::string& path) {
    return pathCall(Call::Unlink, "unlink", path, ::unlink);
}

Status makeDirectory(const std::string& path, mode_t mode) {
    return pathCall(Call::MakeDirectory, "mkdir", path, [&](const char* text) { return ::mkdir(text, mode); });
}

Status changeMode(const std::string& path, mode_t mode) {
    return pathCall(Call::ChangeMode, "chmod", path, [&](const char* text) { return ::chmod(text, mode); });
}

Status replaceDescriptor(int from, int to) {
    return descriptorCall(Call::Duplicate, "dup3", from, [&](int fd) { return ::dup3(fd, to, O_CLOEXEC); });
}

Result<UniqueFd> memoryFile(const std::string& name) {
    UniqueFd fd(retried(
        Call::MemFd, [&](std::size_t) { return ::memfd_create(name.c_str(), MFD_CLOEXEC | MFD_ALLOW_SEALING); }));
    if (!fd) {
        return callError(errno, "memfd_create", name);
    }
    return fd;
}

Status seal(int fd) {
    return descriptorCall(Call::Seal, "fcntl", fd, [](int file) {
        return ::fcntl(file, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL);
    });
}

Result<UniqueFd> processDescriptor(pid_t pid) {
    UniqueFd fd(
        static_cast<int>(retried(Call::PidFd, [&](std::size_t) { return ::syscall(SYS_pidfd_open, pid, 0); })));
    if (!fd) {
        return callError(errno, "pidfd_open", static_cast<int>(pid));
    }
    return fd;
}

}  // namespace ksw::host::sys
