#include "tools/common/progress.h"

#include <unistd.h>

#include <chrono>
#include <iostream>
#include <system_error>
#include <utility>

namespace tools {

Progress::Progress(std::string what) : what_(std::move(what)) {
    if (isatty(STDERR_FILENO) != 1) {
        return;
    }
    try {
        thread_ = std::thread([this] { run(); });
    } catch (const std::system_error&) {
        // Without a thread to spare the work is done unwatched.
    }
}

Progress::~Progress() {
    if (!thread_.joinable()) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        hasEnded_ = true;
    }
    ended_.notify_one();
    thread_.join();
}

void Progress::run() {
    const auto start = std::chrono::steady_clock::now();
    std::string line;
    std::unique_lock lock(mutex_);
    for (int seconds = 1;
         !ended_.wait_until(lock, start + std::chrono::seconds(seconds), [this] { return hasEnded_; }); ++seconds) {
        line = what_ + ": " + std::to_string(seconds) + " s";
        std::cerr << '\r' << line << std::flush;
    }
    if (!line.empty()) {
        std::cerr << '\r' << std::string(line.size(), ' ') << '\r' << std::flush;
    }
}

}  // namespace tools
