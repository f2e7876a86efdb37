// sys_lookup.h: calls that look for files: without waiting for a disk, without mounting, by a handle, entry by
// entry. As in sys_files.h every descriptor is close-on-exec, interruptions are retried, and a path with a NUL byte
// is EINVAL. Any thread.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <kestrelwood/values/data.h>

#include <dirent.h>
#include <sys/stat.h>
#include <sys/statfs.h>

#include "platform/base/unique_fd.h"
#include "platform/host/sys_call.h"

namespace ksw::host::sys {

/// What becomes of symbolic links on a path: all followed, all refused, or the one at its end taken for the file.
enum class Links { Follow, Refuse, TakeLast };

/// The file at `path`, open only to be looked at (O_PATH), when the kernel has the whole way to it in memory:
/// nothing is read, waited for or mounted. EAGAIN when it has not, ELOOP for a refused link; ENOSYS or EINVAL from
/// a kernel before Linux 5.12, which cannot do this, EPERM where a filter of calls forbids it.
Result<UniqueFd> openIfKnown(const std::string& path, Links links);
/// The same below an open folder.
Result<UniqueFd> openIfKnownAt(int folder, const std::string& path, Links links);

/// Facts of a name in an open folder. A link is not followed, and a place where something would be mounted stays as
/// it is.
Result<struct ::statx> statxAt(int folder, const std::string& name, unsigned mask);

/// Where the open symbolic link points. ENAMETOOLONG from 4,096 bytes on (PATH_MAX).
Result<std::string> readLink(int link);

/// Facts of the file system that an open file, O_PATH included, lies in.
Result<struct ::statfs> volumeStatus(int fd);

/// Whether the process may execute the file, or search the folder, with the rights that it has now. EACCES when
/// not.
Status checkExecutable(const std::string& path);

/// What a file system itself calls a file by, whatever its path.
struct FileHandle {
    int type = 0;
    Data bytes;
};

/// Largest handle, in bytes. Origin: the kernel's MAX_HANDLE_SZ.
inline constexpr std::size_t kFileHandleMax = 128;

/// The handle of a path's file, links followed. EOPNOTSUPP from a file system that has none.
Result<FileHandle> fileHandle(const std::string& path);

/// The file of a handle, open to be looked at, in the file system that `folder` lies in. EPERM without the right to
/// pass over permissions (CAP_DAC_READ_SEARCH), ESTALE when there is no such file any more.
Result<UniqueFd> openByHandle(int folder, int type, Bytes handle);

/// The entries of a folder, one at a time. One thread.
class FolderEntries {
public:
    /// `flags` besides those that open a folder for reading: O_NOFOLLOW.
    static Result<FolderEntries> open(const std::string& folder, int flags = 0);
    /// Of a folder that is open for reading already; `folder` is what errors call it.
    static Result<FolderEntries> adopt(UniqueFd fd, const std::string& folder);

    /// The next name, without "." and ".."; absent at the end.
    Result<std::optional<std::string>> next();
    /// The folder; open as long as this object is there.
    int fd() const;

private:
    struct Closer {
        void operator()(DIR* stream) const { ::closedir(stream); }
    };
    FolderEntries(std::string folder, std::unique_ptr<DIR, Closer> stream)
        : folder_(std::move(folder)), stream_(std::move(stream)) {}

    std::string folder_;  // for errors
    std::unique_ptr<DIR, Closer> stream_;
};

}  // namespace ksw::host::sys
