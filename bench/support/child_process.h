// child_process.h: a function that runs in a process of its own until the object goes.
#pragma once

#include <sys/types.h>

#include <functional>

namespace ksw::bench {

class ChildProcess {
public:
    /// Forks; the child runs `body` and ends. Before any thread is started.
    explicit ChildProcess(const std::function<void()>& body);
    /// Ends the child and waits for it.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

private:
    pid_t pid_;
};

/// Keeps this process, and the children that it will have, on one CPU: two CPUs of a shared machine measure the
/// scheduler.
void stayOnOneCpu();

}  // namespace ksw::bench
