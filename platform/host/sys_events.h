// sys_events.h: waiting. Every descriptor is close-on-exec; a wait that is interrupted goes on for the time
// that is left. All functions may be called from any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <poll.h>
#include <sys/epoll.h>
#include <sys/inotify.h>

#include "platform/base/unique_fd.h"
#include "platform/host/sys_call.h"

namespace ksw::host::sys {

/// How long to wait; absent: for ever.
using Timeout = std::optional<std::chrono::milliseconds>;

/// The number of descriptors that have events; 0 when the time is over. Blocks.
Result<std::size_t> poll(std::span<pollfd> descriptors, Timeout timeout);

Result<UniqueFd> epollCreate();
/// `operation` is EPOLL_CTL_ADD, _MOD or _DEL.
Status epollControl(int epoll, int operation, int fd, std::uint32_t events, std::uint64_t data);
/// The number of events filled in; 0 when the time is over. Blocks. `events` must not be empty.
Result<std::size_t> epollWait(int epoll, std::span<epoll_event> events, Timeout timeout);

/// A counter to wake a waiting thread with; non-blocking.
Result<UniqueFd> eventDescriptor();
/// Makes an event descriptor readable. Never blocks; a counter that is full is readable already.
Status signalEvent(int fd);
/// Makes it unreadable again.
Status drainEvent(int fd);

/// A timer on the monotonic clock; non-blocking, not armed.
Result<UniqueFd> timerDescriptor();
/// Fires once after `delay`; absent disarms it.
Status armTimer(int fd, std::optional<std::chrono::nanoseconds> delay);

/// A queue of what happens in folders (inotify(7)); non-blocking, read with `read`.
Result<UniqueFd> folderEvents();
/// Reports what happens at a path, as `mask` says, from now on. The number under which it is reported.
Result<int> watchPath(int events, const std::string& path, std::uint32_t mask);

}  // namespace ksw::host::sys
