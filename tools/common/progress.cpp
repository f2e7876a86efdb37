#include "tools/common/progress.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <system_error>
#include <utility>

namespace tools {

namespace {

/// Those of the host's clock.
class SteadySeconds final : public Seconds {
public:
    bool passes(int count) override {
        std::unique_lock lock(mutex_);
        return !ended_.wait_until(lock, start_ + std::chrono::seconds(count), [this] { return hasEnded_; });
    }

    void end() override {
        {
            const std::lock_guard lock(mutex_);
            hasEnded_ = true;
        }
        ended_.notify_one();
    }

private:
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::mutex mutex_;
    std::condition_variable ended_;
    bool hasEnded_ = false;
};

std::unique_ptr<Seconds> secondsOnATerminal() {
    return isatty(STDERR_FILENO) == 1 ? std::make_unique<SteadySeconds>() : nullptr;
}

}  // namespace

Progress::Progress(std::string what) : Progress(std::move(what), std::cerr, secondsOnATerminal()) {}

Progress::Progress(std::string what, std::ostream& terminal, std::unique_ptr<Seconds> seconds)
    : what_(std::move(what)), terminal_(terminal), seconds_(std::move(seconds)) {
    if (!seconds_) {
        return;
    }
    try {
        thread_ = std::thread([this] { run(); });
    } catch (const std::system_error&) {
        // Without a thread to spare the work is done unwatched.
    }
}

Progress::~Progress() {
    if (thread_.joinable()) {
        seconds_->end();
        thread_.join();
    }
}

void Progress::reach(std::size_t done, std::size_t all) {
    const std::lock_guard lock(mutex_);
    reached_ = std::to_string(done) + " of " + std::to_string(all) + ", ";
}

std::string Progress::lineAfter(int seconds) {
    const std::lock_guard lock(mutex_);
    return what_ + ": " + reached_ + std::to_string(seconds) + " s";
}

void Progress::run() {
    std::size_t width = 0;
    for (int seconds = 1; seconds_->passes(seconds); ++seconds) {
        std::string line = lineAfter(seconds);
        width = std::max(width, line.size());
        line.resize(width, ' ');  // what stood there may have been longer
        terminal_ << '\r' << line << std::flush;
    }
    if (width > 0) {
        terminal_ << '\r' << std::string(width, ' ') << '\r' << std::flush;
    }
}

}  // namespace tools
