// translocation.h: programs that run out of an image file. Such a file mounts itself below a fresh folder, and its
// program runs from there; the place is another in each run, and the file is what people know and keep.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <kestrelwood/values/audit_token.h>

namespace ksw::host {

/// A mount made by an image file: a FUSE file system on a folder whose name begins with ".mount_".
struct ImageMount {
    std::string point;
    std::string source;   ///< What was mounted, as whoever mounted it says: the image's path or its name.
    Uid owner = kNoUser;  ///< Who mounted it, as the kernel says.
};

/// The image mount that a path lies in, in the text of /proc/PID/mountinfo. Absent when another mount is nearer to
/// the path.
std::optional<ImageMount> imageMountIn(std::string_view mountinfo, std::string_view path);

/// The value of the variable APPIMAGE in the bytes of /proc/PID/environ. Absent when it is none or no absolute
/// path.
std::optional<std::string> imageNamedIn(std::string_view environment);

/// The image file that a process runs out of, given where its executable lies. Absent when it runs out of none and
/// when that is not certain: a process writes its environment itself. So the file must be what the mount says it is
/// of, and process, mount and file must be the same user's: a liar can name nothing but what he could have mounted
/// instead. The path is canonical. Any thread; blocks for the file system that the file is on.
std::optional<std::string> imageOfProcess(const AuditToken& token, const std::string& executable);

}  // namespace ksw::host
