#include "platform/host/translocation.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>

#include <unistd.h>

#include "platform/base/paths.h"
#include "platform/host/file_facts.h"
#include "platform/host/peer_identity.h"
#include "platform/host/process_facts.h"
#include "platform/host/sys_files.h"

namespace ksw::host {

namespace {

constexpr std::string_view kMountPrefix = ".mount_";
constexpr std::string_view kVariable = "APPIMAGE=";

/// Takes what stands before the separator, and the separator.
std::string_view take(std::string_view& text, char separator) {
    const std::size_t end = std::min(text.find(separator), text.size());
    const std::string_view taken = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return taken;
}

/// The kernel writes blanks, line ends, "#" and backslashes as three octal digits.
std::string unescaped(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        int code = 0;
        const bool isEscape = text.size() >= 4 && text[0] == '\\' &&
                              std::from_chars(text.data() + 1, text.data() + 4, code, 8).ptr == text.data() + 4 &&
                              code <= UCHAR_MAX;
        result += isEscape ? static_cast<char>(code) : text[0];
        text.remove_prefix(isEscape ? 4 : 1);
    }
    return result;
}

/// The user in the options that the file system has from the kernel: "rw,user_id=1000,group_id=1000".
Uid ownerIn(std::string_view options) {
    constexpr std::string_view kKey = "user_id=";
    while (!options.empty()) {
        std::string_view option = take(options, ',');
        if (option.starts_with(kKey)) {
            option.remove_prefix(kKey.size());
            Uid owner = kNoUser;
            const auto [end, failure] = std::from_chars(option.data(), option.data() + option.size(), owner);
            return failure == std::errc() && end == option.data() + option.size() ? owner : kNoUser;
        }
    }
    return kNoUser;
}

struct Mount {
    std::string point;
    std::string_view type;
    std::string_view source;
    std::string_view options;
};

/// A line of mountinfo: number, parent, device, root, mount point, options, tags, "-", type, source, options.
Mount mountIn(std::string_view line) {
    constexpr int kWordsBeforePoint = 4;
    for (int skipped = 0; skipped < kWordsBeforePoint; ++skipped) {
        take(line, ' ');
    }
    Mount mount;
    mount.point = unescaped(take(line, ' '));
    while (!line.empty() && take(line, ' ') != "-") {
    }
    mount.type = take(line, ' ');
    mount.source = take(line, ' ');
    mount.options = line;
    return mount;
}

bool isOfImage(const Mount& mount) {
    return (mount.type == "fuse" || mount.type.starts_with("fuse.")) &&
           lastComponent(mount.point).starts_with(kMountPrefix);
}

/// Whether the image may be what was mounted, and is the mount's owner's.
bool fits(const std::string& image, const ImageMount& mount) {
    const Result<struct ::statx> facts = sys::statx(image, AT_NO_AUTOMOUNT, STATX_TYPE | STATX_UID);
    return facts && S_ISREG(facts->stx_mode) && facts->stx_uid == mount.owner &&
           (mount.source == image || mount.source == lastComponent(image));
}

}  // namespace

std::optional<ImageMount> imageMountIn(std::string_view mountinfo, std::string_view path) {
    Mount nearest;
    while (!mountinfo.empty()) {
        Mount mount = mountIn(take(mountinfo, '\n'));
        // Of two on the same folder the later one covers the other.
        if (!mount.point.empty() && isAtOrBelow(path, mount.point) && mount.point.size() >= nearest.point.size()) {
            nearest = std::move(mount);
        }
    }
    if (!isOfImage(nearest) || path == nearest.point) {
        return std::nullopt;
    }
    return ImageMount{std::move(nearest.point), unescaped(nearest.source), ownerIn(nearest.options)};
}

std::optional<std::string> imageNamedIn(std::string_view environment) {
    while (!environment.empty()) {
        std::string_view variable = take(environment, '\0');
        if (variable.starts_with(kVariable)) {
            variable.remove_prefix(kVariable.size());
            const bool isPath = variable.starts_with('/') && variable.size() < PATH_MAX;
            return isPath ? std::optional(std::string(variable)) : std::nullopt;
        }
    }
    return std::nullopt;
}

std::optional<std::string> imageOfProcess(const AuditToken& token, const std::string& executable) {
    // Our own list of mounts: in a namespace of its own a process may mount what it likes in anybody's name.
    const Result<std::string> mounts = processFile(::getpid(), "mountinfo");
    const std::optional<ImageMount> mount = mounts ? imageMountIn(*mounts, executable) : std::nullopt;
    if (!mount || mount->owner == kNoUser) {
        return std::nullopt;
    }
    const Result<std::string> environment = processFile(token.pid(), "environ");
    const Result<ProcessIds> ids = processIds(token.pid());
    if (!environment || !ids || ids->realUid != mount->owner || !revalidate(token)) {
        return std::nullopt;
    }
    std::optional<std::string> image = imageNamedIn(*environment);
    const Result<std::string> canonical = image ? canonicalPath(*image) : Result<std::string>(std::string());
    const bool isCertain = image && canonical && *canonical == *image && fits(*image, *mount);
    return isCertain ? std::move(image) : std::nullopt;
}

}  // namespace ksw::host
