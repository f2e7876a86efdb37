#include "platform/host/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <thread>

#include "platform/host/activity.h"
#include "platform/host/log_capture.h"

namespace {

struct Secret {
    int* described;
};
std::string describe(const Secret& secret) {
    ++*secret.described;
    return "the secret";
}

struct Thrower {};
std::string describe(const Thrower&) {
    throw std::runtime_error("no description");
}

}  // namespace

namespace ksw::host {
namespace {

using testing::ElementsAre;

TEST(ALogLine, ShowsItsPublicAndItsFullForm) {
    const LogCapture capture;
    mainLog.error("%s: identifier=%{public}@, url=%@, code=%ld, flags=%#lx, have LWCR=%{bool}d", "getItem",
                  std::string("com.example.a"), std::string("file:///a"), 5L, 0x8, true);
    ASSERT_EQ(capture.lines().size(), 1U);
    const LogLine line = capture.lines().front();
    EXPECT_EQ(line.publicForm,
              "getItem: identifier=com.example.a, url=<private>, code=5, flags=0x8, have LWCR=true");
    EXPECT_EQ(line.fullForm, "getItem: identifier=com.example.a, url=file:///a, code=5, flags=0x8, have LWCR=true");
    EXPECT_EQ(line.text, "%s: identifier=%{public}@, url=%@, code=%ld, flags=%#lx, have LWCR=%{bool}d");
    EXPECT_EQ(line.category, "main");
}

TEST(ALog, HasFiveLevels) {
    const LogCapture capture;
    mainLog.debug("a");
    mainLog.info("b");
    mainLog.notice("c");
    mainLog.error("d");
    mainLog.fault("e");
    std::vector<LogLevel> levels;
    for (const LogLine& line : capture.lines()) {
        levels.push_back(line.level);
    }
    EXPECT_THAT(levels,
                ElementsAre(LogLevel::Debug, LogLevel::Info, LogLevel::Notice, LogLevel::Error, LogLevel::Fault));
    EXPECT_THAT(capture.at(LogLevel::Notice), ElementsAre("c"));
    EXPECT_EQ(capture.count("e"), 1U);
}

TEST(ALog, NamesItsCategory) {
    const LogCapture capture;
    importLog.info("x");
    EXPECT_EQ(capture.lines().front().category, "import");
}

TEST(ALogLine, IsStampedWithTheInnermostActivity) {
    const LogCapture capture;
    mainLog.info("outside");
    {
        const ActivityScope outer("KSWManager.addItem");
        const ActivityScope inner("KSWList.refresh");
        mainLog.info("inside");
    }
    const std::vector<LogLine> lines = capture.lines();
    EXPECT_EQ(lines[0].activity, "");
    EXPECT_EQ(lines[0].activityId, 0U);
    EXPECT_EQ(lines[1].activity, "KSWList.refresh");
    EXPECT_NE(lines[1].activityId, 0U);
}

TEST(ALogLineThatIsOff, FormatsNothing) {
    {
        const LogCapture capture;  // reads the environment for the levels that follow
        mainLog.info("ready");
    }
    int described = 0;
    const std::uint32_t before = logLevelsOn.exchange(0);
    mainLog.fault("%@", Secret{&described});
    logLevelsOn.store(before);
    EXPECT_EQ(described, 0);
}

TEST(ALogLine, LeavesErrnoAlone) {
    const LogCapture capture;
    errno = ENOTTY;
    mainLog.info("%@", std::string("x"));
    EXPECT_EQ(errno, ENOTTY);
}

TEST(ALogLineWhoseArgumentThrows, IsLostWithoutHarm) {
    const LogCapture capture;
    EXPECT_NO_THROW(mainLog.error("%@", Thrower{}));
    EXPECT_TRUE(capture.lines().empty());
}

TEST(ACapture, SeesTheLinesOfAllThreads) {
    const LogCapture capture;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            const ActivityScope scope("thread");
            for (int n = 0; n < 50; ++n) {
                mainLog.debug("%d", i);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(capture.lines().size(), 200U);
    EXPECT_EQ(capture.count("3"), 50U);
}

TEST(Captures, MayComeAndGoInParallelThreads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            for (int n = 0; n < 20; ++n) {
                const LogCapture capture;
                mainLog.info("thread %d", i);
                EXPECT_GE(capture.count("thread " + std::to_string(i)), 1U);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(ACapture, ForgetsWhenCleared) {
    LogCapture capture;
    mainLog.info("x");
    capture.clear();
    EXPECT_TRUE(capture.lines().empty());
}

TEST(ACapture, TurnsEveryLevelOnForAsLongAsItLives) {
    std::uint32_t after = 0;
    {
        const LogCapture capture;
        mainLog.debug("x");
        EXPECT_TRUE(Log::isOn(LogLevel::Debug));
    }
    after = logLevelsOn.load();
    EXPECT_NE(after & 0x18U, 0U);  // errors and faults are on wherever we run
}

}  // namespace
}  // namespace ksw::host
