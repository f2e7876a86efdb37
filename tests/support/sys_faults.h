// sys_faults.h: makes system calls fail, be interrupted or move few bytes while an object of this class lives.
// One at a time in a process; what it asks for holds for every thread.
#pragma once

#include "platform/host/sys_call.h"

namespace ksw::test {

class SysFaults {
public:
    SysFaults();
    ~SysFaults();
    SysFaults(const SysFaults&) = delete;
    SysFaults& operator=(const SysFaults&) = delete;

    /// The `nth` call of the kind from now on (1 is the next) fails with the errno; the others go through.
    void failNth(host::sys::Call call, unsigned nth, int error);
    /// The `nth` and all after it.
    void failFrom(host::sys::Call call, unsigned nth, int error);
    /// Every call of the kind fails with the errno from now on.
    void failAll(host::sys::Call call, int error);
    /// The next `times` calls of the kind are interrupted by a signal.
    void interrupt(host::sys::Call call, unsigned times);
    /// Every transfer of the kind moves at most `bytes`.
    void shorten(host::sys::Call call, std::size_t bytes);

    /// Calls of the kind made since this object is there, interrupted and failed ones included.
    unsigned count(host::sys::Call call) const;
};

}  // namespace ksw::test
