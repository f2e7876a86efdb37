#include "platform/host/file_facts.h"

#include <algorithm>

#include <sys/sysmacros.h>

#include "platform/host/bundles.h"
#include "platform/host/regular_file.h"
#include "platform/host/sys.h"

namespace ksw::host {

namespace {

/// An absolute path that leads through no link, without ".", ".." and needless slashes.
std::string withoutDots(std::string_view path) {
    std::string result;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find('/'), path.size());
        const std::string_view name = path.substr(0, end);
        path.remove_prefix(std::min(end + 1, path.size()));
        if (name == "..") {
            result.erase(std::min(result.rfind('/'), result.size()));
        } else if (!name.empty() && name != ".") {
            result.append("/").append(name);
        }
    }
    return result.empty() ? "/" : result;
}

}  // namespace

Result<FileFacts> fileFacts(const std::string& path) {
    const Result<struct ::statx> answer = sys::statx(path, 0, kFactsMask);
    if (!answer) {
        return answer.error();
    }
    return factsIn(*answer, path);
}

FileFacts factsIn(const struct ::statx& answer, std::string_view path) {
    FileFacts facts;
    facts.isDirectory = S_ISDIR(answer.stx_mode);
    facts.isRegularFile = S_ISREG(answer.stx_mode);
    facts.isApplication = facts.isDirectory && bundleExtension(path) == kApplicationExtension;
    facts.contentModificationDate = Date::fromUnix(answer.stx_mtime.tv_sec, answer.stx_mtime.tv_nsec);
    facts.identifier.device = makedev(answer.stx_dev_major, answer.stx_dev_minor);
    facts.identifier.inode = answer.stx_ino;
    if ((answer.stx_mask & STATX_BTIME) != 0) {
        facts.identifier.birthSeconds = answer.stx_btime.tv_sec;
        facts.identifier.birthNanoseconds = answer.stx_btime.tv_nsec;
    }
    return facts;
}

bool isTopOfVolume(const std::string& folder) {
    const Result<struct ::statx> facts = sys::statx(folder, 0, STATX_INO);
    if (!facts) {
        return false;
    }
    if ((facts->stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) != 0) {
        return (facts->stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
    }
    // Before Linux 5.8: another device above, or nothing above.
    const Result<struct ::statx> above = sys::statx(folder + "/..", 0, STATX_INO);
    return above && (above->stx_dev_major != facts->stx_dev_major || above->stx_dev_minor != facts->stx_dev_minor ||
                     above->stx_ino == facts->stx_ino);
}

bool fileExists(const std::string& path) {
    return sys::statx(path, 0, STATX_TYPE).ok();
}

Result<std::string> canonicalPath(const std::string& path) {
    if (path.starts_with('/')) {
        // Two cheap calls where, as for most paths, there is no link to follow.
        const Result<bool> isWithoutLinks = sys::isWithoutLinks(path);
        if (!isWithoutLinks) {
            return isWithoutLinks.error();
        }
        if (*isWithoutLinks) {
            return withoutDots(path);
        }
    }
    return sys::realPath(path);
}

Result<Data> readFile(const std::string& path, std::size_t sizeMax) {
    const Result<std::optional<UniqueFd>> opened = openRegularFile(path);
    if (!opened) {
        return opened.error();
    }
    if (!*opened) {
        return sys::callError(EINVAL, "read", path);
    }
    const int file = (*opened)->get();
    const Result<struct ::stat> facts = sys::fileStatus(file);
    if (!facts) {
        return facts.error();
    }
    Data content;
    // One byte more than the file has, to see its end; the file may also grow while it is read.
    std::size_t room = std::min(static_cast<std::size_t>(std::max<off_t>(facts->st_size, 0)), sizeMax) + 1;
    while (content.size() <= sizeMax) {
        const std::size_t done = content.size();
        content.resize(done + room);
        const Result<sys::Transfer> transfer = sys::read(file, content.data() + done, room);
        if (!transfer) {
            return transfer.error();
        }
        content.resize(done + transfer->bytes);
        if (transfer->bytes == 0) {
            return content;
        }
        room = std::min<std::size_t>(sizeMax - std::min(sizeMax, content.size()) + 1, 64U * 1024U);
    }
    return sys::callError(EFBIG, "read", path);
}

}  // namespace ksw::host
