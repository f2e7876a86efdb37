// daemon_process.h: the program kestrelwoodd as a process of a test's own, in a host root of its own.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "platform/base/unique_fd.h"
#include "tests/support/environment.h"
#include "tests/support/temp_folder.h"

namespace ksw::daemon::test {

/// The path of kestrelwoodd.
std::string daemonProgram();

/// How a process ended, and what it wrote.
struct Ending {
    int status = -1;     ///< Exit status; 128 and the signal's number for one that was killed.
    std::string output;  ///< Of standard output and standard error together.
};

/// A program that has been started. It is killed when the object goes.
class Process {
public:
    /// Runs kestrelwoodd, or another program, with these arguments and `variables` ("NAME=value") on top of the
    /// environment.
    Process(const std::vector<std::string>& arguments, const std::vector<std::string>& variables)
        : Process(daemonProgram(), arguments, variables) {}
    Process(const std::string& program, const std::vector<std::string>& arguments,
            const std::vector<std::string>& variables);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return pid_; }
    void signal(int number) const;
    /// Waits until it has ended by itself.
    Ending wait();
    /// Becomes readable when it has ended.
    int descriptor() const { return descriptor_.get(); }

private:
    pid_t pid_ = 0;
    UniqueFd descriptor_;
    UniqueFd output_;
};

/// The host root and the notification socket of a daemon; while it lives the test's own process looks for
/// services in that host root too. One at a time in a process.
class DaemonHost {
public:
    DaemonHost();

    /// Starts kestrelwoodd; `variables` and `arguments` as for Process.
    std::unique_ptr<Process> start(const std::vector<std::string>& variables = {},
                                   const std::vector<std::string>& arguments = {}) const;
    /// The same, and waits until it is ready; null when it ended instead.
    std::unique_ptr<Process> startReady(const std::vector<std::string>& variables = {},
                                        const std::vector<std::string>& arguments = {}) const;
    /// Waits until the process has notified this state; false when it ended before.
    bool waitFor(const Process& process, std::string_view state) const;

    const ksw::test::TempFolder& root() const { return root_; }
    std::string databasePath() const { return root_.at("var/lib/kestrelwood/kestrelwood.db"); }
    std::string socketPath(std::string_view service) const {
        return root_.at("run/kestrelwood/" + std::string(service));
    }

private:
    ksw::test::TempFolder root_;
    ksw::test::ScopedVariable variable_;
    UniqueFd notifications_;
};

}  // namespace ksw::daemon::test
