#include "platform/host/quiet_lookup.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include <linux/magic.h>

#include "platform/host/sys.h"

namespace ksw::host {

namespace {

/// Symbolic links on one way. Origin: the kernel's MAXSYMLINKS.
constexpr int kLinksMax = 40;
constexpr int kLook = O_PATH | O_NOFOLLOW;

Result<Volume> volumeOf(int file) {
    const Result<struct ::statfs> status = sys::volumeStatus(file);
    if (!status) {
        return status.error();
    }
    Volume volume;
    static_assert(sizeof volume.identifier == sizeof status->f_fsid);
    std::memcpy(&volume.identifier, &status->f_fsid, sizeof volume.identifier);
    volume.isUnmounted = status->f_type == AUTOFS_SUPER_MAGIC;
    return volume;
}

/// Whether the kernel cannot say what it has in memory.
bool cannotTell(const Error& error) {
    return sys::isErrno(error, EAGAIN) || sys::isErrno(error, ENOSYS) || sys::isErrno(error, EINVAL) ||
           sys::isErrno(error, EPERM);
}

/// Goes a way step by step. A step by the kernel's O_PATH mounts nothing at its end, and every step is one's end;
/// only in a folder of an automounter the mere name would make it mount.
class QuietWay {
public:
    explicit QuietWay(const std::string& path) : path_(path), rest_(path) {}

    /// Error: ENOMEDIUM, or why a step is not possible.
    Status go() {
        Status status = begin();
        while (status && !rest_.empty()) {
            const std::string name = rest_.substr(0, rest_.find('/'));
            rest_.erase(0, std::min(name.size() + 1, rest_.size()));
            if (!name.empty() && name != ".") {
                status = step(name);
            }
        }
        return status && isInAutomounter_ ? Status(nothingMounted()) : status;
    }

private:
    Status begin() {
        Result<UniqueFd> root = sys::open("/", kLook);
        return root ? enter(std::move(*root)) : Status(root.error());
    }

    Status step(const std::string& name) {
        Result<UniqueFd> next = isInAutomounter_ ? openMounted(name) : sys::openAt(at_.get(), name, kLook);
        if (!next) {
            return next.error();
        }
        const Result<struct ::statx> facts = sys::statx(next->get(), STATX_TYPE);
        if (!facts) {
            return facts.error();
        }
        return S_ISLNK(facts->stx_mode) ? follow(next->get()) : enter(std::move(*next));
    }

    /// The kernel has in memory what is mounted already. It also says that it has not when a mount anywhere changes
    /// in that moment, so it is asked again.
    Result<UniqueFd> openMounted(const std::string& name) const {
        for (int tries = 0; tries < kTriesMax; ++tries) {
            Result<UniqueFd> next = sys::openIfKnownAt(at_.get(), name, sys::Links::TakeLast);
            if (next || !cannotTell(next.error())) {
                return next;
            }
        }
        return nothingMounted();
    }

    Error nothingMounted() const { return sys::callError(ENOMEDIUM, "open", path_); }

    Status enter(UniqueFd place) {
        const Result<Volume> volume = volumeOf(place.get());
        if (!volume) {
            return volume.error();
        }
        isInAutomounter_ = volume->isUnmounted;
        at_ = std::move(place);
        return {};
    }

    Status follow(int link) {
        Result<std::string> target = sys::readLink(link);
        if (!target) {
            return target.error();
        }
        if (++links_ > kLinksMax || target->size() + rest_.size() > kWayMax) {
            return sys::callError(ELOOP, "open", path_);
        }
        rest_ = std::move(*target) + "/" + rest_;
        return rest_.starts_with('/') ? begin() : Status();
    }

    static constexpr int kTriesMax = 3;
    /// Text of links yet to be gone, in bytes: a few paths' worth.
    static constexpr std::size_t kWayMax = 16'384;

    const std::string& path_;
    std::string rest_;
    UniqueFd at_;
    bool isInAutomounter_ = false;
    int links_ = 0;
};

Result<Sighting> sightingOf(int file, const std::string& path, bool isWithoutLinks) {
    const Result<struct ::statx> answer = sys::statx(file, kFactsMask);
    if (!answer) {
        return answer.error();
    }
    return Sighting{factsIn(*answer, path), isWithoutLinks};
}

}  // namespace

Result<Sighting> lookQuietly(const std::string& path) {
    Result<UniqueFd> known = sys::openIfKnown(path, sys::Links::Refuse);
    const bool isWithoutLinks = known.ok();
    if (!known && sys::isErrno(known.error(), ELOOP)) {
        known = sys::openIfKnown(path, sys::Links::Follow);
    }
    if (known) {
        return sightingOf(known->get(), path, isWithoutLinks);
    }
    if (!cannotTell(known.error())) {
        return known.error();
    }
    if (Status status = QuietWay(path).go(); !status) {
        return status.error();
    }
    // The kernel itself goes the way that is now known to mount nothing: it may know better who may go it.
    const Result<UniqueFd> file = sys::open(path, O_PATH);
    return file ? sightingOf(file->get(), path, false) : Result<Sighting>(file.error());
}

Result<Volume> volumeOf(const std::string& path) {
    const Result<UniqueFd> file = sys::open(path, O_PATH);
    return file ? volumeOf(file->get()) : Result<Volume>(file.error());
}

}  // namespace ksw::host
