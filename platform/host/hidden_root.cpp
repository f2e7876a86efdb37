#include "platform/host/hidden_root.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdint>
#include <optional>

#include <unistd.h>

#include "platform/base/paths.h"
#include "platform/host/process_epoch.h"
#include "platform/host/process_facts.h"
#include "platform/host/sys.h"

namespace ksw::host {

namespace {

/// Unless an administrator has chosen another; /proc may be shown without it.
constexpr Uid kUsualOverflowUid = 65'534;
constexpr mode_t kOthersMayWrite = S_IWGRP | S_IWOTH;
constexpr mode_t kOthersMayEnter = S_IRWXG | S_IRWXO;

/// The next number in the text, which is cut off; absent when none follows.
std::optional<std::uint64_t> takeNumber(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \n"), text.size()));
    std::uint64_t number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc()) {
        return std::nullopt;
    }
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

/// What is known, in one word so that it is read and replaced whole: the process that has found it out, by its
/// epoch, above the number. Process 0: nothing is known yet.
constinit std::atomic<std::uint64_t> known{0};
constexpr unsigned kNumberBits = 32;

std::uint64_t ownMark() {
    return processEpoch() << kNumberBits;
}

/// The number by which uid 0 is shown to this process. A child of it may have gone to a namespace of its own.
Uid hiddenRoot() {
    const std::uint64_t mark = ownMark();
    const std::uint64_t word = known.load(std::memory_order_relaxed);
    if (word != 0 && (word >> kNumberBits << kNumberBits) == mark) {
        return static_cast<Uid>(word);
    }
    const Result<std::string> map = kernelFile("/proc/self/uid_map");
    if (!map || map->empty()) {
        return kNoUser;
    }
    const Result<std::string> overflow = kernelFile("/proc/sys/kernel/overflowuid");
    const Uid number = hiddenRootIn(*map, overflow ? *overflow : std::string());
    known.store(mark | number, std::memory_order_relaxed);
    return number;
}

/// Whether `shown` may be uid 0. One's own number is one's own, and needs no look.
bool mayBeRoot(Uid shown) {
    return shown != 0 && shown != ::geteuid() && shown != kNoUser && shown == hiddenRoot();
}

/// Whether the path and all folders above it are shown as one number's and only their owners may write to them. On
/// the host itself they are then uid 0's from the top on.
bool isMadeBy(std::string_view path, Uid shown) {
    while (!path.empty()) {
        const auto facts =
            sys::statx(std::string(path), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_UID | STATX_MODE);
        if (!facts || facts->stx_uid != shown || (facts->stx_mode & kOthersMayWrite) != 0) {
            return false;
        }
        if (path == "/") {
            return true;
        }
        path = folderOf(path);
    }
    return false;
}

/// Whether it is a folder that none but this process's user may enter; uid 0 may everywhere.
bool isClosed(std::string_view folder) {
    const auto facts =
        sys::statx(std::string(folder), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_TYPE | STATX_UID | STATX_MODE);
    return facts && S_ISDIR(facts->stx_mode) && facts->stx_uid == ::geteuid() &&
           (facts->stx_mode & kOthersMayEnter) == 0;
}

}  // namespace

Uid listenerAt(const std::string& path, Uid shown) {
    return mayBeRoot(shown) && isMadeBy(folderOf(path), shown) ? 0 : shown;
}

Uid callerThrough(int socket, Uid shown) {
    if (!mayBeRoot(shown)) {
        return shown;
    }
    const Result<std::string> path = sys::boundPath(socket);
    const std::string_view folder = path ? folderOf(*path) : std::string_view();
    return !folder.empty() && isClosed(folder) && isClosed(folderOf(folder)) ? 0 : shown;
}

Uid ownerAt(const std::string& path, Uid shown) {
    if (!mayBeRoot(shown)) {
        return shown;
    }
    return isMadeBy(path, shown) ? 0 : kNoUser;
}

Uid hiddenRootIn(std::string_view uidMap, std::string_view overflowUid) {
    const std::uint64_t overflow = takeNumber(overflowUid).value_or(kUsualOverflowUid);
    bool isAnybodys = overflow >= kNoUser;
    while (const std::optional<std::uint64_t> inside = takeNumber(uidMap)) {
        const std::optional<std::uint64_t> outside = takeNumber(uidMap);
        const std::optional<std::uint64_t> count = takeNumber(uidMap);
        if (!outside || !count || *inside == 0 || *outside == 0) {
            return kNoUser;
        }
        isAnybodys = isAnybodys || (overflow >= *inside && overflow - *inside < *count);
    }
    return isAnybodys ? kNoUser : static_cast<Uid>(overflow);
}

}  // namespace ksw::host
