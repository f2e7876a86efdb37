// sys_files.h: file calls. Every descriptor is close-on-exec and interruptions are retried. A path with a NUL
// byte is EINVAL, since the kernel would see another path. All functions may be called from any thread.
#pragma once

#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

#include "platform/base/unique_fd.h"
#include "platform/host/sys_transfer.h"

namespace ksw::host::sys {

/// `flags` as for open(2), `mode` for a file that is created.
Result<UniqueFd> open(const std::string& path, int flags, mode_t mode = 0600);
/// The same below an open folder.
Result<UniqueFd> openAt(int folder, const std::string& name, int flags, mode_t mode = 0600);
/// The same, refusing a path with a symbolic link in any component (ELOOP). Where there is no
/// such call (before Linux 5.6, and in some sandboxes) only a link as the last component is refused.
Result<UniqueFd> openWithoutLinks(const std::string& path, int flags);

/// A path below an open folder, through whatever is renamed meanwhile: EXDEV when a part of it, ".." and links
/// included, leads out of the folder; EAGAIN when that could not be told. ENOSYS before Linux 5.6.
Result<UniqueFd> openBeneath(int folder, const std::string& path, int flags);

/// One read or write of at most `size` bytes; may move fewer.
Result<Transfer> read(int fd, void* buffer, std::size_t size);
Result<Transfer> write(int fd, const void* bytes, std::size_t size);

Result<struct ::stat> fileStatus(int fd);
/// Facts of a path (a link as the last component is followed unless `flags` has AT_SYMLINK_NOFOLLOW), or of
/// an open file.
Result<struct ::statx> statx(const std::string& path, int flags, unsigned mask);
Result<struct ::statx> statx(int fd, unsigned mask);
/// Where a symbolic link points. ENAMETOOLONG from 4,096 bytes on (PATH_MAX).
Result<std::string> readLink(const std::string& path);
/// Whether the path leads to its file through no symbolic link. False also where the kernel cannot or will not
/// tell.
Result<bool> isWithoutLinks(const std::string& path);
/// The canonical path of a file: absolute, without links, "." and ".." (realpath(3)).
Result<std::string> realPath(const std::string& path);

/// The names in a folder, in no order, without "." and "..".
Result<std::vector<std::string>> namesIn(const std::string& folder);

Status syncFile(int fd);
/// What has been made, renamed and removed in a folder is on disk afterwards. A file system that keeps no folders
/// (EINVAL) has nothing to do.
Status syncFolder(const std::string& folder);
Status syncData(int fd);
Status rename(const std::string& from, const std::string& to);
Status unlink(const std::string& path);
/// EEXIST when there is something.
Status makeDirectory(const std::string& path, mode_t mode);
Status changeMode(const std::string& path, mode_t mode);

/// Makes the descriptor `to` stand for what `from` stands for, in one step: whoever uses `to` meanwhile uses the
/// old or the new. Both stay open.
Status replaceDescriptor(int from, int to);

/// An unnamed file in memory; sealing it makes it immutable.
Result<UniqueFd> memoryFile(const std::string& name);
Status seal(int fd);
/// A descriptor that stands for a process. ESRCH when there is none.
Result<UniqueFd> processDescriptor(pid_t pid);

}  // namespace ksw::host::sys
