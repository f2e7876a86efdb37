#include "platform/host/sys_events.h"

#include <algorithm>
#include <climits>

#include <sys/eventfd.h>
#include <sys/timerfd.h>

#include "platform/host/sys_files.h"

namespace ksw::host::sys {

namespace {

/// Repeats a wait until it is not interrupted, each time for what is left. `function` takes milliseconds.
template <class Function>
int waited(Call call, Timeout timeout, Function function) {
    const auto start = std::chrono::steady_clock::now();
    return retried(call, [&](std::size_t) {
        if (!timeout) {
            return function(-1);
        }
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(start + *timeout - std::chrono::steady_clock::now());
        return function(static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, INT_MAX)));
    });
}

}  // namespace

Result<std::size_t> poll(std::span<pollfd> descriptors, Timeout timeout) {
    const int ready = waited(Call::Poll, timeout, [&](int milliseconds) {
        return ::poll(descriptors.data(), descriptors.size(), milliseconds);
    });
    if (ready < 0) {
        return callError(errno, "poll");
    }
    return static_cast<std::size_t>(ready);
}

Result<UniqueFd> epollCreate() {
    UniqueFd fd(retried(Call::EpollCreate, [](std::size_t) { return ::epoll_create1(EPOLL_CLOEXEC); }));
    if (!fd) {
        return callError(errno, "epoll_create1");
    }
    return fd;
}

Status epollControl(int epoll, int operation, int fd, std::uint32_t events, std::uint64_t data) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = data;
    if (retried(Call::EpollControl, [&](std::size_t) { return ::epoll_ctl(epoll, operation, fd, &event); }) < 0) {
        return callError(errno, "epoll_ctl", fd);
    }
    return {};
}

Result<std::size_t> epollWait(int epoll, std::span<epoll_event> events, Timeout timeout) {
    const int room = static_cast<int>(std::min<std::size_t>(events.size(), INT_MAX / sizeof(epoll_event)));
    const int ready = waited(Call::EpollWait, timeout, [&](int milliseconds) {
        return ::epoll_wait(epoll, events.data(), room, milliseconds);
    });
    if (ready < 0) {
        return callError(errno, "epoll_wait", epoll);
    }
    return static_cast<std::size_t>(ready);
}

Result<UniqueFd> eventDescriptor() {
    UniqueFd fd(retried(Call::EventFd, [](std::size_t) { return ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); }));
    if (!fd) {
        return callError(errno, "eventfd");
    }
    return fd;
}

Status signalEvent(int fd) {
    const std::uint64_t one = 1;
    const Result<Transfer> written = write(fd, &one, sizeof one);
    return written ? Status() : Status(written.error());
}

Status drainEvent(int fd) {
    std::uint64_t count = 0;
    const Result<Transfer> drained = read(fd, &count, sizeof count);
    return drained ? Status() : Status(drained.error());
}

Result<UniqueFd> timerDescriptor() {
    UniqueFd fd(retried(Call::TimerFdCreate,
                        [](std::size_t) { return ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK); }));
    if (!fd) {
        return callError(errno, "timerfd_create");
    }
    return fd;
}

Status armTimer(int fd, std::optional<std::chrono::nanoseconds> delay) {
    itimerspec times{};
    if (delay) {
        // A delay of zero would disarm the timer.
        const auto length = std::max(*delay, std::chrono::nanoseconds(1));
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(length);
        times.it_value.tv_sec = static_cast<time_t>(seconds.count());
        times.it_value.tv_nsec = static_cast<long>((length - seconds).count());
    }
    if (retried(Call::TimerFdSet, [&](std::size_t) { return ::timerfd_settime(fd, 0, &times, nullptr); }) < 0) {
        return callError(errno, "timerfd_settime", fd);
    }
    return {};
}

Result<UniqueFd> folderEvents() {
    UniqueFd fd(retried(Call::InotifyInit, [](std::size_t) { return ::inotify_init1(IN_CLOEXEC | IN_NONBLOCK); }));
    if (!fd) {
        return callError(errno, "inotify_init1");
    }
    return fd;
}

Result<int> watchPath(int events, const std::string& path, std::uint32_t mask) {
    const int watch = retried(Call::InotifyAddWatch,
                              [&](std::size_t) { return ::inotify_add_watch(events, path.c_str(), mask); });
    if (watch < 0) {
        return callError(errno, "inotify_add_watch", path);
    }
    return watch;
}

}  // namespace ksw::host::sys
