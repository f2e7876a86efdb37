#include "platform/ipc/hub_watch.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "platform/host/sys.h"

namespace ksw::ipc {

namespace {

namespace sys = host::sys;

/// What may change whether a socket can be reached: names that come and go, modes, the folder's own end.
constexpr std::uint32_t kChanges =
    IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
/// How often folders may come and go while they are being watched; then the clock has to do.
constexpr int kRoundsMax = 16;
constexpr std::size_t kEventsSize = 4096;

bool isAbsent(const Error& error) {
    return sys::isErrno(error, ENOENT) || sys::isErrno(error, ENOTDIR);
}

/// Whether something is at the path, or may be.
bool isThere(const std::string& path) {
    const Result<struct ::statx> facts = sys::statx(path, AT_SYMLINK_NOFOLLOW, STATX_TYPE);
    return facts || !isAbsent(facts.error());
}

struct Place {
    std::string folder;
    std::string name;
};

/// "/a/b" is "b" in "/a"; "/a" is "a" in "/".
Place placeOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos || slash == 0) {
        return {"/", path.substr(slash + 1)};
    }
    return {path.substr(0, slash), path.substr(slash + 1)};
}

}  // namespace

void HubWatch::begin(const std::string& socketPath) {
    // A hub that was there only for a moment, again and again, is looked for at growing distances.
    if (reachedAt_ && Clock::now() - *reachedAt_ >= kDelayMax) {
        delay_ = {};
    }
    reachedAt_.reset();
    // A watch that stands is kept: it has seen what came during the attempt.
    if (!events_ || path_ != socketPath) {
        path_ = socketPath;
        watch();
    }
    setClock();
}

void HubWatch::end() {
    events_.reset();
    lookAt_.reset();
    reachedAt_ = Clock::now();
}

bool HubWatch::await(int wakeFd) {
    while (true) {
        pollfd waits[] = {{wakeFd, POLLIN, 0}, {events_.get(), POLLIN, 0}};
        sys::Timeout timeout;
        if (lookAt_) {
            timeout = std::max(std::chrono::milliseconds(0),
                               std::chrono::ceil<std::chrono::milliseconds>(*lookAt_ - Clock::now()));
        }
        (void)sys::poll(waits, timeout);
        if (waits[1].revents != 0 && takeChanges()) {
            watch();
            if (isThere(path_)) {
                delay_ = {};
                return true;
            }
            setClock();
        }
        if (lookAt_ && Clock::now() >= *lookAt_) {
            return true;
        }
        if (waits[0].revents != 0) {
            return false;
        }
    }
}

/// Watches anew. Whatever came before the watching is there when the caller looks.
void HubWatch::watch() {
    for (int round = 0; round < kRoundsMax; ++round) {
        Result<UniqueFd> events = sys::folderEvents();
        if (!events) {
            break;
        }
        events_ = std::move(*events);
        const std::optional<std::string> awaited = watchNearest();
        if (!awaited) {
            break;
        }
        if (*awaited == path_ || !isThere(*awaited)) {
            return;
        }
    }
    events_.reset();
}

/// Watches the nearest folder that exists. The path that is awaited in it; absent when the kernel denies it.
std::optional<std::string> HubWatch::watchNearest() {
    std::string awaited = path_;
    while (true) {
        Place place = placeOf(awaited);
        if (const Result<int> number = sys::watchPath(events_.get(), place.folder, kChanges)) {
            nearest_ = {*number, std::move(place.name)};
            watchAbove(place.folder);
            return awaited;
        } else if (!isAbsent(number.error()) || place.folder == "/") {
            return std::nullopt;
        }
        awaited = std::move(place.folder);
    }
}

void HubWatch::watchAbove(const std::string& folder) {
    above_ = {};
    if (folder == "/") {
        return;
    }
    Place place = placeOf(folder);
    if (const Result<int> number = sys::watchPath(events_.get(), place.folder, kChanges)) {
        above_ = {*number, std::move(place.name)};
    }
}

/// Takes what has been reported. Whether it concerns the place.
bool HubWatch::takeChanges() {
    alignas(inotify_event) char buffer[kEventsSize];
    bool hasChanged = false;
    while (true) {
        const Result<sys::Transfer> taken = sys::read(events_.get(), buffer, sizeof buffer);
        if (!taken) {
            events_.reset();
            setClock();
            return false;
        }
        if (taken->bytes == 0) {
            return hasChanged;
        }
        inotify_event event{};
        for (std::size_t offset = 0; offset + sizeof event <= taken->bytes; offset += sizeof event + event.len) {
            std::memcpy(&event, buffer + offset, sizeof event);
            const char* name = buffer + offset + sizeof event;
            hasChanged = concerns(event.wd, event.len == 0 ? std::string_view() : name) || hasChanged;
        }
    }
}

/// An event without a name is of the folder itself; without a number, of events that were lost.
bool HubWatch::concerns(int number, std::string_view name) const {
    const auto isOf = [&](const Watched& watched) {
        return number == watched.number && (name.empty() || name == watched.name);
    };
    return number < 0 || isOf(nearest_) || isOf(above_);
}

void HubWatch::setClock() {
    lookAt_.reset();
    if (!events_ || isThere(path_)) {
        lookAt_ = Clock::now() + delay_;
        delay_ = std::clamp(2 * delay_, kDelayMin, kDelayMax);
    }
}

}  // namespace ksw::ipc
