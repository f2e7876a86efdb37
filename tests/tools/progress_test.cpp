#include "tools/common/progress.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace {

/// Seconds that pass when the test says so.
class ManualSeconds final : public tools::Seconds {
public:
    bool passes(int count) override {
        std::unique_lock lock(mutex_);
        awaited_ = count;
        changed_.notify_all();
        changed_.wait(lock, [&] { return hasEnded_ || passed_ >= count; });
        return !hasEnded_;
    }

    void end() override {
        const std::lock_guard lock(mutex_);
        hasEnded_ = true;
        changed_.notify_all();
    }

    /// Returns when the line of this second is written, and the next one is waited for.
    void pass(int count) {
        std::unique_lock lock(mutex_);
        passed_ = count;
        changed_.notify_all();
        changed_.wait(lock, [&] { return awaited_ > count; });
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int awaited_ = 0;
    int passed_ = 0;
    bool hasEnded_ = false;
};

class AProgress : public testing::Test {
protected:
    AProgress() {
        auto seconds = std::make_unique<ManualSeconds>();
        seconds_ = seconds.get();
        progress_ = std::make_unique<tools::Progress>("At work", terminal_, std::move(seconds));
    }

    std::ostringstream terminal_;
    ManualSeconds* seconds_ = nullptr;
    std::unique_ptr<tools::Progress> progress_;
};

TEST_F(AProgress, ShowsNothingOfWorkThatEndsWithinASecond) {
    seconds_->pass(0);
    progress_->reach(1, 2);
    progress_.reset();
    EXPECT_EQ(terminal_.str(), "");
}

TEST_F(AProgress, CountsTheSecondsAndTakesItsLineAway) {
    seconds_->pass(1);
    EXPECT_EQ(terminal_.str(), "\rAt work: 1 s");
    seconds_->pass(2);
    EXPECT_EQ(terminal_.str(), "\rAt work: 1 s\rAt work: 2 s");
    terminal_.str("");
    progress_.reset();
    EXPECT_EQ(terminal_.str(), "\r            \r");
}

TEST_F(AProgress, SaysHowMuchIsDone) {
    progress_->reach(99, 100);
    seconds_->pass(1);
    progress_->reach(7, 9);
    seconds_->pass(2);
    EXPECT_EQ(terminal_.str(), "\rAt work: 99 of 100, 1 s\rAt work: 7 of 9, 2 s   ");
}

TEST(AProgressWithoutATerminal, IsSilent) {
    std::ostringstream terminal;
    {
        tools::Progress progress("At work", terminal, nullptr);
        progress.reach(1, 2);
    }
    EXPECT_EQ(terminal.str(), "");
}

}  // namespace
