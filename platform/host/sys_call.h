// sys_call.h: how this library makes a system call: interruptions retried, errors that name the call and its
// argument, and a hook through which tests fail, interrupt or shorten the n-th call of a kind.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/base/result.h"

namespace ksw::host::sys {

/// The calls that are wrapped, by the kernel's names.
enum class Call : std::uint8_t {
    Accept,
    Bind,
    Connect,
    GetSockName,
    GetSockOpt,
    Listen,
    Recv,
    RecvMsg,
    Send,
    SendMsg,
    SetSockOpt,
    Shutdown,
    Socket,
    SocketPair,
    EpollControl,
    EpollCreate,
    EpollWait,
    EventFd,
    InotifyAddWatch,
    InotifyInit,
    Poll,
    TimerFdCreate,
    TimerFdSet,
    Access,
    Attributes,
    ChangeMode,
    ChangeOwner,
    DataSync,
    Duplicate,
    FileHandle,
    FileSync,
    FileStatus,
    MakeDirectory,
    MemFd,
    Open,
    PidFd,
    Read,
    ReadLink,
    Rename,
    Seal,
    StatFs,
    Statx,
    Unlink,
    Write,
    Count
};

/// What a hook makes of one call.
struct Outcome {
    int error = 0;                     ///< Not 0: the call is not made and fails with this errno.
    std::size_t lengthMax = SIZE_MAX;  ///< A transfer moves at most this many bytes, at least 1.
};

/// Sees every call before it is made. Called from any thread.
class Hook {
public:
    virtual Outcome before(Call call) noexcept = 0;

protected:
    ~Hook() = default;
};

/// The hook in force; null outside of tests. A hook once set must live as long as the process does.
inline constinit std::atomic<Hook*> hook{nullptr};

inline Outcome outcomeOf(Call call) {
    Hook* const current = hook.load(std::memory_order_acquire);
    return current == nullptr ? Outcome{} : current->before(call);
}

/// Makes the call until it is not interrupted. `function(lengthMax)` returns -1 and sets errno on failure, as
/// the kernel's interface does, and so does this.
template <class Function>
auto retried(Call call, Function function) {
    while (true) {
        const Outcome outcome = outcomeOf(call);
        decltype(function(std::size_t{})) returned = -1;
        if (outcome.error != 0) {
            errno = outcome.error;
        } else {
            returned = function(outcome.lengthMax);
        }
        if (returned >= 0 || errno != EINTR) {
            return returned;
        }
    }
}

/// The error of a call: domain POSIX, code `number`, text `connect("/run/x.sock"): Connection refused`.
/// An argument that is a descriptor stands without quotes.
Error callError(int number, std::string_view name, std::string_view path);
Error callError(int number, std::string_view name, int fd);
Error callError(int number, std::string_view name);

/// Whether an error is the errno `number`.
inline bool isErrno(const Error& error, int number) {
    return error.code() == number && error.domain() == kPosixErrorDomain;
}

}  // namespace ksw::host::sys
