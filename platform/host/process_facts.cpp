#include "platform/host/process_facts.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <string>

#include <sys/vfs.h>

#include "platform/host/sys.h"

namespace ksw::host {

namespace {

constexpr std::size_t kUsualFileSize = 4'096;
constexpr long kPidFileSystem = 0x50494446;  // PID_FS_MAGIC, linux/magic.h of Linux 6.9
/// The start time is the 22nd word of /proc/PID/stat, the state behind the name the third.
constexpr int kWordsBeforeStartTime = 19;

/// The next number of a text of blank-separated words; absent when the next word is none.
template <class Number>
std::optional<Number> takeNumber(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    Number number{};
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc()) {
        return std::nullopt;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

/// Reads the real and the effective number behind `label` in /proc/PID/status.
bool readPair(std::string_view status, std::string_view label, std::uint32_t& real, std::uint32_t& effective) {
    const std::size_t at = status.find(label);
    if (at == std::string_view::npos) {
        return false;
    }
    std::string_view rest = status.substr(at + label.size());
    const auto first = takeNumber<std::uint32_t>(rest);
    const auto second = takeNumber<std::uint32_t>(rest);
    real = first.value_or(0);
    effective = second.value_or(0);
    return first && second;
}

}  // namespace

Result<std::string> processFile(pid_t pid, std::string_view name) {
    std::string path = "/proc/" + std::to_string(pid) + "/";
    path += name;
    Result<std::string> content = kernelFile(path);
    const bool isGone = !content && sys::isErrno(content.error(), ENOENT);
    return isGone ? Result<std::string>(sys::callError(ESRCH, "open", path)) : std::move(content);
}

Result<std::string> kernelFile(const std::string& path) {
    const Result<UniqueFd> file = sys::open(path, O_RDONLY);
    if (!file) {
        return file.error();
    }
    // These files have no size, and some of them are read whole or not at all.
    std::string content;
    std::size_t size = 0;
    while (size < kProcessFileMax) {
        content.resize(std::min(std::max(kUsualFileSize, 2 * size), kProcessFileMax));
        const Result<sys::Transfer> read = sys::read(file->get(), content.data() + size, content.size() - size);
        if (!read) {
            return read.error();
        }
        if (read->bytes == 0) {
            break;
        }
        size += read->bytes;
    }
    content.resize(size);
    return content;
}

Result<ProcessIds> processIds(pid_t pid) {
    const Result<std::string> status = processFile(pid, "status");
    if (!status) {
        return status.error();
    }
    ProcessIds ids;
    // The name in the first line cannot imitate these: the kernel escapes line breaks in it.
    if (!readPair(*status, "\nUid:", ids.realUid, ids.effectiveUid) ||
        !readPair(*status, "\nGid:", ids.realGid, ids.effectiveGid)) {
        return sys::callError(EINVAL, "read", "/proc/" + std::to_string(pid) + "/status");
    }
    const Result<std::string> session = processFile(pid, "sessionid");
    std::string_view sessionText = session ? std::string_view(*session) : std::string_view();
    ids.auditSession = takeNumber<std::uint32_t>(sessionText).value_or(kNoAuditSession);
    return ids;
}

Result<std::uint64_t> processIdentity(int pidfd, pid_t pid) {
    struct ::statfs fileSystem {};
    if (::fstatfs(pidfd, &fileSystem) == 0 && fileSystem.f_type == kPidFileSystem) {
        const Result<struct ::stat> facts = sys::fileStatus(pidfd);
        if (facts && facts->st_ino != 0) {
            return static_cast<std::uint64_t>(facts->st_ino);
        }
    }
    const Result<std::string> stat = processFile(pid, "stat");
    if (!stat) {
        return stat.error();
    }
    const std::optional<std::uint64_t> startTime = startTimeIn(*stat);
    if (!startTime) {
        return sys::callError(EINVAL, "read", "/proc/" + std::to_string(pid) + "/stat");
    }
    // The first process starts at 0, which would read as no identity.
    return *startTime + 1;
}

bool hasEnded(int pidfd) {
    pollfd waiting{pidfd, POLLIN, 0};
    const Result<std::size_t> ready = sys::poll({&waiting, 1}, std::chrono::milliseconds(0));
    return !ready || *ready != 0;
}

std::optional<std::uint64_t> startTimeIn(std::string_view stat) {
    const std::size_t nameEnd = stat.rfind(')');
    if (nameEnd == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view rest = stat.substr(nameEnd + 1);
    for (int skipped = 0; skipped < kWordsBeforeStartTime; ++skipped) {
        rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
        rest.remove_prefix(std::min(rest.find(' '), rest.size()));
    }
    return takeNumber<std::uint64_t>(rest);
}

}  // namespace ksw::host
