#include "platform/host/sys_threads.h"

namespace ksw::host::sys {

SignalsBlocked::SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    // Fails only for an operation that does not exist.
    (void)::pthread_sigmask(SIG_SETMASK, &all, &former_);
}

SignalsBlocked::~SignalsBlocked() {
    (void)::pthread_sigmask(SIG_SETMASK, &former_, nullptr);
}

}  // namespace ksw::host::sys
