#include "servers/common/stop_signals.h"

#include <sys/signalfd.h>

#include <csignal>

#include "platform/host/sys_events.h"

namespace ksw::servers {

Result<StopSignals> StopSignals::block() {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigaddset(&stop, SIGINT);
    sigset_t blocked = stop;
    // A reader of standard error that has gone away must not take the server with it.
    sigaddset(&blocked, SIGPIPE);
    if (const int error = pthread_sigmask(SIG_BLOCK, &blocked, nullptr); error != 0) {
        return host::sys::callError(error, "pthread_sigmask");
    }
    UniqueFd fd(signalfd(-1, &stop, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!fd) {
        return host::sys::callError(errno, "signalfd");
    }
    return StopSignals(std::move(fd));
}

Status StopSignals::wait(const Notifier& notifier) {
    while (true) {
        pollfd waited{fd_.get(), POLLIN, 0};
        Result<std::size_t> ready = host::sys::poll({&waited, 1}, notifier.watchdogInterval());
        if (!ready) {
            return ready.error();
        }
        if (*ready > 0) {
            return {};
        }
        notifier.alive();
    }
}

}  // namespace ksw::servers
