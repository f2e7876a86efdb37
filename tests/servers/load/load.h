// load.h: what the tests of the daemon under load share: sizes, jobs on record, times and child processes.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

#include <kestrelwood/values.h>

#include "platform/base/unique_fd.h"
#include "servers/kestrelwoodd/store.h"
#include "tests/support/sanitized.h"

namespace ksw::test {

using Nanoseconds = std::chrono::nanoseconds;

// Jobs on record, told apart by their number: no other job has the same label or the same launch constraint.

/// An answer about an item carries its whole family, so a developer has few jobs.
inline constexpr int kJobsOfADeveloper = 4;

std::string labelOf(int number);
std::string identifierOf(int number);
Data constraintOf(int number);
URL jobURLOf(int number);
Dictionary configurationOf(int number);
/// The rows of that many allowed jobs of a user, and of the developers above them.
std::vector<daemon::ItemRow> rowsOfJobs(Uid uid, int count);
/// Puts them into the store of the host root that is set, which no daemon serves yet.
void recordJobs(Uid uid, int count);

/// Some ordinary user when root runs the tests; else the one who does.
Uid anyUser();
Uid anotherUser();

/// Lets this process open so many files, if it may; how many it may open now.
std::size_t allowOpenFiles(std::size_t count);

/// The time that this share of the samples stays below.
Nanoseconds percentile(std::vector<Nanoseconds> samples, double share);
/// How long each of `count` calls takes, or of as many as fit into twenty seconds.
std::vector<Nanoseconds> timesOf(int count, const std::function<void()>& call);

/// Its child's end of a line to a parent.
class Line {
public:
    explicit Line(UniqueFd fd) : fd_(std::move(fd)) {}
    int fd() const { return fd_.get(); }
    /// Says that something has happened.
    void tell() const;
    /// Waits until the other end has told; false when it is gone, or when it takes a minute.
    [[nodiscard]] bool wait() const;
    void send(const std::vector<Nanoseconds>& times) const;
    /// What the other end has sent; empty when it is gone.
    std::vector<Nanoseconds> receive() const;
    void close() { fd_.reset(); }

private:
    UniqueFd fd_;
};

/// A process that runs a function of the test's, as some user. It is killed when the object goes.
class Child {
public:
    /// `body` gets its end of the line; what it returns is the status. `uid` is taken when root runs the test.
    Child(Uid uid, const std::function<int(Line&)>& body);
    ~Child();
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    Line& line() { return line_; }
    pid_t pid() const { return pid_; }
    void signal(int number) const;
    /// Closes the line and waits until it has ended; its status, 128 and the signal's number for one that was
    /// killed.
    int end();

private:
    pid_t pid_ = -1;
    Line line_;
};

}  // namespace ksw::test
