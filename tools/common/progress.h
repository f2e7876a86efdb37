// progress.h: tells a person at a terminal that a tool is still at work.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace tools {

/// How a progress learns that time passes, and that the work has ended. `passes` is for one thread, `end` for
/// another.
class Seconds {
public:
    virtual ~Seconds() = default;

    /// Returns when `count` seconds have passed since the work began: whether it goes on. False at once when it has
    /// ended.
    virtual bool passes(int count) = 0;
    virtual void end() = 0;
};

/// While it exists and the work takes longer than a second, standard error shows what is done, how much of it is,
/// and for how many seconds; the line is taken away at the end. Does nothing when standard error is no terminal.
/// While it exists nothing else is to be written there. For one thread.
class Progress {
public:
    explicit Progress(std::string what);
    /// Shows it on `terminal`, whatever that is.
    Progress(std::string what, std::ostream& terminal, std::unique_ptr<Seconds> seconds);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// How much is done: so many of all. Shown with the next second.
    void reach(std::size_t done, std::size_t all);

private:
    void run();
    std::string lineAfter(int seconds);

    const std::string what_;
    std::ostream& terminal_;
    const std::unique_ptr<Seconds> seconds_;  ///< Null when nothing is shown.
    std::mutex mutex_;
    std::string reached_;  ///< Behind the mutex.
    std::thread thread_;
};

}  // namespace tools
