#include "platform/host/sys_replace.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include <fcntl.h>
#include <linux/limits.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace ksw::host::sys {

namespace {

template <class Function>
Status checked(Call call, std::string_view name, const std::string& path, Function function) {
    if (path.find('\0') != std::string::npos) {
        return callError(EINVAL, name, path.c_str());
    }
    if (retried(call, [&](std::size_t) { return function(path.c_str()); }) < 0) {
        return callError(errno, name, path);
    }
    return {};
}

/// The names of a file's attributes, each with a NUL behind it. A kernel bound: 64 KiB (XATTR_LIST_MAX).
Result<std::vector<char>> attributeNames(int fd) {
    std::vector<char> names(XATTR_LIST_MAX);
    const ssize_t size =
        retried(Call::Attributes, [&](std::size_t) { return ::flistxattr(fd, names.data(), names.size()); });
    if (size < 0) {
        return callError(errno, "flistxattr", fd);
    }
    names.resize(static_cast<std::size_t>(size));
    return names;
}

Status copyAttribute(int from, int to, const char* name, std::vector<char>& value) {
    const ssize_t size =
        retried(Call::Attributes, [&](std::size_t) { return ::fgetxattr(from, name, value.data(), value.size()); });
    if (size < 0) {
        return callError(errno, "fgetxattr", name);
    }
    const int given = retried(Call::Attributes, [&](std::size_t) {
        return ::fsetxattr(to, name, value.data(), static_cast<std::size_t>(size), 0);
    });
    return given < 0 ? Status(callError(errno, "fsetxattr", name)) : Status();
}

}  // namespace

Result<Transfer> readAt(int fd, void* buffer, std::size_t size, std::uint64_t offset) {
    const ssize_t returned = retried(Call::Read, [&](std::size_t lengthMax) {
        return ::pread(fd, buffer, std::min(size, lengthMax), static_cast<off_t>(offset));
    });
    return transferOf(returned, "pread", fd);
}

Result<struct ::stat> statusAt(int folder, const std::string& name) {
    struct ::stat facts {};
    Status status = checked(Call::FileStatus, "fstatat", name,
                            [&](const char* text) { return ::fstatat(folder, text, &facts, AT_SYMLINK_NOFOLLOW); });
    if (!status) {
        return status.error();
    }
    return facts;
}

Status renameAt(int folder, const std::string& from, const std::string& to) {
    return checked(Call::Rename, "rename", from,
                   [&](const char* text) { return ::renameat(folder, text, folder, to.c_str()); });
}

Status unlinkAt(int folder, const std::string& name) {
    return checked(Call::Unlink, "unlink", name, [&](const char* text) { return ::unlinkat(folder, text, 0); });
}

Status changeMode(int fd, mode_t mode) {
    if (retried(Call::ChangeMode, [&](std::size_t) { return ::fchmod(fd, mode); }) < 0) {
        return callError(errno, "fchmod", fd);
    }
    return {};
}

Status changeOwner(int fd, uid_t uid, gid_t gid) {
    if (retried(Call::ChangeOwner, [&](std::size_t) { return ::fchown(fd, uid, gid); }) < 0) {
        return callError(errno, "fchown", fd);
    }
    return {};
}

Status copyAttributes(int from, int to) {
    const Result<std::vector<char>> names = attributeNames(from);
    if (!names) {
        return names.error();
    }
    std::vector<char> value(XATTR_SIZE_MAX);
    Status status;
    for (std::size_t at = 0; at < names->size();) {
        const char* name = names->data() + at;
        const Status copied = copyAttribute(from, to, name, value);
        if (!copied && status) {
            status = copied;
        }
        at += std::char_traits<char>::length(name) + 1;
    }
    return status;
}

}  // namespace ksw::host::sys
