// sys_replace.h: calls for whoever reads one open file and puts another in its place, inside one open folder, so
// that no path is looked up twice. As for sys_files.h: close-on-exec, interruptions retried, any thread.
#pragma once

#include <cstdint>
#include <string>

#include <sys/stat.h>

#include "platform/base/unique_fd.h"
#include "platform/host/sys_transfer.h"

namespace ksw::host::sys {

/// One read of at most `size` bytes at an offset; may move fewer, and none at the end.
Result<Transfer> readAt(int fd, void* buffer, std::size_t size, std::uint64_t offset);

/// Facts of a name in an open folder; a link is not followed.
Result<struct ::stat> statusAt(int folder, const std::string& name);
/// In one step: what was `to` is gone.
Status renameAt(int folder, const std::string& from, const std::string& to);
Status unlinkAt(int folder, const std::string& name);

Status changeMode(int fd, mode_t mode);
Status changeOwner(int fd, uid_t uid, gid_t gid);
/// Gives a file the extended attributes of another. Error: that of the first which could not be given; the others
/// were tried.
Status copyAttributes(int from, int to);

}  // namespace ksw::host::sys
