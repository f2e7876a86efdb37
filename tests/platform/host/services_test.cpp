#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

#include "platform/host/clock.h"
#include "platform/host/feature_flags.h"
#include "platform/host/lock_word.h"
#include "platform/host/log_capture.h"
#include "tests/support/environment.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_folder.h"

namespace ksw::host {
namespace {

/// Reads "on", "off", "number", "empty" and "list"; anything else is damaged.
Result<Value> readFlags(Bytes bytes) {
    const std::string text(bytes.begin(), bytes.end());
    if (text == "on" || text == "off") {
        return Value(Dictionary{{"AutoRefreshLists", text == "on"}});
    }
    if (text == "number") {
        return Value(Dictionary{{"AutoRefreshLists", 0}});
    }
    if (text == "empty") {
        return Value(Dictionary{});
    }
    if (text == "list") {
        return Value(Array{});
    }
    return Error(FormatError::Malformed, "no property list");
}

class AFeature : public testing::Test {
protected:
    static bool isOn() { return isFeatureEnabled("Kestrelwood", "AutoRefreshLists", readFlags); }
    void owner(std::string_view text) const { root_.writeFile("etc/kestrelwood/features/Kestrelwood.plist", text); }
    void shipped(std::string_view text) const {
        root_.writeFile("usr/share/kestrelwood/features/Kestrelwood.plist", text);
    }

    test::TempFolder root_;
    test::ScopedVariable variable_{"KESTRELWOOD_ROOT", root_.path()};
    LogCapture log_;
};

TEST_F(AFeature, IsOnWithoutAFile) {
    EXPECT_TRUE(isOn());
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(AFeature, IsWhatTheShippedFileSays) {
    shipped("off");
    EXPECT_FALSE(isOn());
}

TEST_F(AFeature, IsWhatTheOwnersFileSaysFirst) {
    shipped("off");
    owner("on");
    EXPECT_TRUE(isOn());
}

TEST_F(AFeature, FallsThroughAFileWithoutIt) {
    shipped("off");
    owner("empty");
    EXPECT_FALSE(isOn());
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(AFeature, FallsThroughADamagedFileThatIsLogged) {
    shipped("off");
    for (const char* damage : {"damaged", "number", "list"}) {
        log_.clear();
        owner(damage);
        EXPECT_FALSE(isOn()) << damage;
        EXPECT_EQ(log_.at(LogLevel::Error).size(), 1U) << damage;
    }
    EXPECT_EQ(log_.at(LogLevel::Error).front(),
              "Feature flags at " + root_.at("etc/kestrelwood/features/Kestrelwood.plist") +
                  " cannot be read: Error Domain=KSWFormatErrorDomain Code=2 \"not a dictionary\"");
}

TEST_F(AFeature, FallsThroughAFileThatIsADirectory) {
    shipped("off");
    root_.makeFolder("etc/kestrelwood/features/Kestrelwood.plist");
    EXPECT_FALSE(isOn());
    EXPECT_EQ(log_.at(LogLevel::Error).size(), 1U);
}

TEST(ALockWord, IsFourBytesAndZeroWhileUnlocked) {
    LockWord lock;
    EXPECT_EQ(lock.value(), 0U);
    {
        const std::lock_guard held(lock);
        EXPECT_NE(lock.value(), 0U);
        EXPECT_FALSE(lock.try_lock());
    }
    EXPECT_EQ(lock.value(), 0U);
}

TEST(ALockWord, LetsOneThreadInAtATime) {
    LockWord lock;
    int counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 5'000; ++n) {
                const std::lock_guard held(lock);
                ++counter;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 40'000);
    EXPECT_EQ(lock.value(), 0U);
}

TEST(TheSystemClock, NeverGoesBack) {
    const auto first = systemClock().monotonic();
    EXPECT_GE(systemClock().monotonic(), first);
    EXPECT_GT(systemClock().wall(), Date::fromUnix(1'600'000'000, 0));
}

TEST(AManualClock, GoesWhenItIsTold) {
    test::ManualClock clock;
    clock.advance(std::chrono::seconds(2));
    EXPECT_EQ(clock.monotonic(), std::chrono::seconds(2));
    EXPECT_EQ(clock.wall(), Date{2});
}

}  // namespace
}  // namespace ksw::host
