// progress.h: tells a person at a terminal that a tool is still at work.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace tools {

/// While it exists and the work takes longer than a second, standard error shows what is done and for how many
/// seconds; the line is taken away at the end. Does nothing when standard error is no terminal. For one thread.
class Progress {
public:
    explicit Progress(std::string what);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

private:
    void run();

    const std::string what_;
    std::mutex mutex_;
    std::condition_variable ended_;
    bool hasEnded_ = false;
    std::thread thread_;
};

}  // namespace tools
