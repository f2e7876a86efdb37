// sys_threads.h: threads that a program did not start itself and should not notice.
#pragma once

#include <csignal>
#include <thread>
#include <utility>

namespace ksw::host::sys {

/// Blocks the signals on the calling thread while it lives, but for those that a thread raises itself (SIGSEGV and
/// the like); a thread started meanwhile keeps them blocked.
class SignalsBlocked {
public:
    SignalsBlocked();
    ~SignalsBlocked();
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t former_;
};

/// A thread on which no signal of the program is handled: its handlers expect the program's own threads. Throws as
/// std::thread does: std::system_error when the kernel denies one, std::bad_alloc.
template <class Function>
[[nodiscard]] std::thread startThread(Function function) {
    const SignalsBlocked blocked;
    return std::thread(std::move(function));
}

}  // namespace ksw::host::sys
