#include <array>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <variant>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <kestrelwood/main_queue.h>

#include "tools/common/descriptor.h"
#include "tools/common/outcome.h"
#include "tools/kswctl/agent_watcher.h"
#include "tools/kswctl/items.h"
#include "tools/kswctl/verbs.h"
#include "tools/kswctl/watcher.h"

namespace tools::kswctl {
namespace {

ExitStatus failedWith(const char* call, int error) {
    complain(std::string(call) + ": " + std::generic_category().message(error));
    return ExitStatus::Failed;
}

/// Signals that ask for the end can be read from the descriptor, by this thread and those that it starts later. A
/// reader that goes away is an error of writing then, and no signal.
Descriptor stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    Descriptor descriptor(signalfd(-1, &signals, SFD_CLOEXEC));
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return descriptor;
}

/// Waits for a signal, for a reader of standard output that has gone, and for a line that cannot be written;
/// meanwhile runs what the main queue has.
ExitStatus waitForTheEnd(const Descriptor& stop, const WatchOutput& output) {
    std::array<pollfd, 4> waited{{{stop.number(), POLLIN, 0},
                                  {output.failed(), POLLIN, 0},
                                  {STDOUT_FILENO, 0, 0},
                                  {ksw::MainQueue::descriptor(), POLLIN, 0}}};
    while (waited[0].revents == 0 && waited[1].revents == 0 && waited[2].revents == 0) {
        if (poll(waited.data(), waited.size(), /*timeout=*/-1) < 0 && errno != EINTR) {
            return failedWith("poll", errno);
        }
        ksw::MainQueue::runWaiting();
    }
    const int failure = output.failure();
    return failure != 0 && failure != EPIPE ? failedWith("standard output", failure) : ExitStatus::Done;
}

}  // namespace

ExitStatus watchItems(const Options& options) {
    // Before the first use of the framework, whose threads inherit which signals are blocked.
    const Descriptor stop = stopSignals();
    if (stop.number() < 0) {
        return failedWith("signalfd", errno);
    }
    const auto answer = listOrComplaint(options);
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        return *status;
    }
    const auto& list = std::get<std::shared_ptr<KSWList>>(answer);
    const std::shared_ptr<WatchOutput> output = WatchOutput::create(formOf(options));
    if (output == nullptr) {
        return failedWith("eventfd", errno);
    }
    const auto watcher = std::make_shared<Watcher>(output, *list);
    list->addListObserver(watcher);
    // What happened between the list's making and the observer's coming was told to nobody.
    watcher->listDidChange(list);
    // The agent of the caller's session knows of the caller's items only.
    const auto agentWatcher = options.uid == getuid() ? AgentWatcher::create(output) : nullptr;
    std::cerr << "kswctl: watching\n";
    const ExitStatus status = waitForTheEnd(stop, *output);
    list->removeListObserver(watcher);
    return status;
}

}  // namespace tools::kswctl
