#include "platform/host/sys_threads.h"

namespace ksw::host::sys {

SignalsBlocked::SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    // These a thread raises by what it does itself; blocked, they would end the program past its handler.
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
        sigdelset(&all, own);
    }
    // Fails only for an operation that does not exist.
    (void)::pthread_sigmask(SIG_SETMASK, &all, &former_);
}

SignalsBlocked::~SignalsBlocked() {
    (void)::pthread_sigmask(SIG_SETMASK, &former_, nullptr);
}

}  // namespace ksw::host::sys
