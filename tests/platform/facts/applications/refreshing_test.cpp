// How the registry keeps up with its folders, and what it costs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <thread>
#include <utility>

#include "platform/facts/application_index.h"
#include "platform/host/log_capture.h"
#include "tests/platform/facts/applications/applications_test_support.h"
#include "tests/support/sys_faults.h"

namespace ksw::facts {
namespace {

using std::chrono_literals::operator""ms;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
namespace sys = host::sys;

class ARegistryOfApplications : public ApplicationsTest {
protected:
    void letASecondPass() { clock_.advance(std::chrono::seconds(1)); }
};

TEST_F(ARegistryOfApplications, SeesAChangeAfterASecond) {
    const std::string path = add("/Applications/Tool.app");
    EXPECT_EQ(found(), path);
    std::filesystem::remove_all(path);
    clock_.advance(999ms);
    EXPECT_EQ(found(), path);
    clock_.advance(1ms);
    EXPECT_EQ(found(), "");
}

TEST_F(ARegistryOfApplications, SeesSoonerWhatNobodyHad) {
    add("/Applications/Other.app", "com.example.other");
    EXPECT_EQ(found(), "");
    const std::string path = add("/Applications/Tool.app");
    clock_.advance(49ms);
    EXPECT_EQ(found(), "");
    clock_.advance(1ms);
    EXPECT_EQ(found(), path);
}

TEST_F(ARegistryOfApplications, SeesFoldersThatCome) {
    EXPECT_THAT(pathsOf(user_), IsEmpty());
    for (const std::string path : {"/Applications/Tool.app", "/opt/maker/Tool.app",
                                   "/usr/local/Applications/Tool.app", "/home/me/Applications/Tool.app"}) {
        add(path);
        letASecondPass();
        EXPECT_EQ(found(), at(path));
        std::filesystem::remove_all(at(path));
        letASecondPass();
        EXPECT_EQ(found(), "");
    }
}

TEST_F(ARegistryOfApplications, SeesAListThatWasChangedInPlace) {
    const std::string path = add("/Applications/Tool.app");
    EXPECT_EQ(found(), path);
    addPlaceholder("/Applications/Tool.app", "com.example.renamed");
    letASecondPass();
    EXPECT_EQ(found(), "");
    EXPECT_EQ(found("com.example.renamed"), path);
}

TEST_F(ARegistryOfApplications, SeesOneThatWasReplacedOrRenamed) {
    add("/Applications/Tool.app");
    add("/srv/Tool.app", "com.example.update");
    EXPECT_NE(found(), "");
    std::filesystem::rename(at("/Applications/Tool.app"), at("/srv/Old.app"));
    std::filesystem::rename(at("/srv/Tool.app"), at("/Applications/Tool.app"));
    letASecondPass();
    EXPECT_EQ(found(), "");
    EXPECT_NE(found("com.example.update"), "");
    std::filesystem::rename(at("/Applications/Tool.app"), at("/Applications/New.app"));
    addExecutable("/Applications/New.app", "New");
    letASecondPass();
    EXPECT_EQ(found("com.example.update"), at("/Applications/New.app"));
}

TEST_F(ARegistryOfApplications, SeesModesThatChange) {
    const std::string path = add("/Applications/Tool.app");
    EXPECT_EQ(found(), path);
    ASSERT_EQ(::chmod(path.c_str(), 0777), 0);
    letASecondPass();
    EXPECT_EQ(found(), "");
    ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
    letASecondPass();
    EXPECT_EQ(found(), path);
}

TEST_F(ARegistryOfApplications, SeesThatTheFoldersAreElsewhere) {
    const std::string first = add("/a/Tool.app");
    const std::string second = add("/b/Tool.app");
    std::filesystem::create_directory_symlink("a", at("/Applications"));
    EXPECT_EQ(found(), first);
    std::filesystem::remove(at("/Applications"));
    std::filesystem::create_directory_symlink("b", at("/Applications"));
    letASecondPass();
    EXPECT_EQ(found(), second);
}

TEST_F(ARegistryOfApplications, KeepsWhatItHasReadWhileNothingChanges) {
    add("/Applications/Tool.app");
    const ApplicationPointer first = registry_.find(kTool, user_);
    letASecondPass();
    EXPECT_EQ(registry_.find(kTool, user_), first);
}

TEST_F(ARegistryOfApplications, ReadsOnceMoreWhatHadJustChanged) {
    clock_.setAhead(0);
    add("/Applications/Tool.app");
    const ApplicationPointer first = registry_.find(kTool, user_);
    clock_.setAhead(10);
    letASecondPass();
    const ApplicationPointer second = registry_.find(kTool, user_);
    EXPECT_NE(second, first);
    letASecondPass();
    EXPECT_EQ(registry_.find(kTool, user_), second);
}

TEST_F(ARegistryOfApplications, AsksTheKernelNothingBetweenItsLooks) {
    add("/Applications/Tool.app");
    EXPECT_NE(found(), "");
    EXPECT_EQ(found("com.example.unknown"), "");
    const test::SysFaults faults;
    for (int i = 0; i < 100; ++i) {
        EXPECT_NE(found(), "");
        EXPECT_EQ(found("com.example.unknown"), "");
    }
    for (std::size_t call = 0; call < static_cast<std::size_t>(sys::Call::Count); ++call) {
        EXPECT_EQ(faults.count(static_cast<sys::Call>(call)), 0U) << call;
    }
}

TEST_F(ARegistryOfApplications, OpensNoFileToSeeThatNothingHasChanged) {
    add("/Applications/Tool.app");
    add("/home/me/Applications/Other.app", "com.example.other");
    EXPECT_NE(found("com.example.other"), "");
    letASecondPass();
    const test::SysFaults faults;
    EXPECT_NE(found("com.example.other"), "");
    EXPECT_EQ(faults.count(sys::Call::Read), 0U);
    EXPECT_GT(faults.count(sys::Call::Statx), 0U);
}

TEST_F(ARegistryOfApplications, IsEmptyWhereNothingCanBeOpened) {
    add("/Applications/Tool.app");
    {
        test::SysFaults faults;
        faults.failAll(sys::Call::Open, EMFILE);
        EXPECT_EQ(found(), "");
    }
    ASSERT_EQ(::chmod(at("/Applications").c_str(), 0750), 0);
    letASecondPass();
    EXPECT_NE(found(), "");
}

TEST_F(ARegistryOfApplications, KeepsApartWhatItHandedOut) {
    const std::string path = add("/Applications/Tool.app");
    const ApplicationPointer kept = registry_.find(kTool, user_);
    std::filesystem::remove_all(path);
    letASecondPass();
    EXPECT_EQ(found(), "");
    EXPECT_EQ(kept->identifier, kTool);
    EXPECT_EQ(kept->team(), std::nullopt);
    EXPECT_EQ(kept->localizedName(), "Tool.app");
}

TEST_F(ARegistryOfApplications, ServesMoreUsersThanItKeeps) {
    add("/Applications/Tool.app");
    for (Uid uid = 3'000'000'000U; uid < 3'000'000'000U + limits::kApplicationUsersMax + 10; ++uid) {
        EXPECT_NE(foundFor(uid), "");
    }
    EXPECT_NE(found(), "");
}

/// Reading an index asks it for the time of day: that can take long, and be held up.
class ReadersClock final : public host::Clock {
public:
    std::chrono::nanoseconds monotonic() const override { return clock_.monotonic(); }
    Date wall() const override {
        if (isHoldingUp_.load()) {
            isReached_ = true;
            isReached_.notify_all();
            isHoldingUp_.wait(true);
        }
        clock_.advance(std::exchange(nextReadingTakes_, {}));
        return clock_.wall();
    }

    void letNextReadingTake(std::chrono::nanoseconds time) { nextReadingTakes_ = time; }
    void advance(std::chrono::nanoseconds time) { clock_.advance(time); }

    void holdUp() { isHoldingUp_ = true; }
    void awaitReader() const { isReached_.wait(false); }
    void letGo() {
        isHoldingUp_ = false;
        isHoldingUp_.notify_all();
    }

private:
    mutable RegistryClock clock_;
    mutable std::chrono::nanoseconds nextReadingTakes_{};
    std::atomic<bool> isHoldingUp_ = false;
    mutable std::atomic<bool> isReached_ = false;
};

TEST_F(ARegistryOfApplications, RestsFromAReadingAsLongAsThatTookAndNotTheOneBefore) {
    ReadersClock clock;
    ApplicationRegistry registry(clock);
    clock.letNextReadingTake(std::chrono::seconds(1));  // everybody's; the user's takes no time
    EXPECT_EQ(registry.find(kTool, user_), nullptr);
    add("/Applications/Tool.app");
    add("/home/me/Applications/Mine.app", "com.example.mine");
    clock.advance(50ms);
    EXPECT_NE(registry.find("com.example.mine", user_), nullptr);
    EXPECT_EQ(registry.find(kTool, user_), nullptr);
    clock.advance(std::chrono::seconds(10));
    EXPECT_NE(registry.find(kTool, user_), nullptr);
}

TEST_F(ARegistryOfApplications, AnswersInAChildThatWasForkedWhileAnotherThreadWasReading) {
    add("/Applications/Tool.app");
    ReadersClock clock;
    ApplicationRegistry registry(clock);
    clock.holdUp();
    std::thread reader([&] { EXPECT_NE(registry.find(kTool, user_), nullptr); });
    clock.awaitReader();
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(30);
        clock.letGo();
        const bool isFound = registry.find(kTool, user_) != nullptr && registry.all(user_).size() == 1;
        ::_exit(isFound ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    clock.letGo();
    reader.join();
}

TEST_F(ARegistryOfApplications, AnswersWhileItsFoldersChange) {
    const std::string path = add("/Applications/Stays.app", "stays");
    std::atomic<bool> isOver{false};
    std::array<std::thread, 3> askers;
    for (std::thread& asker : askers) {
        asker = std::thread([&] {
            while (!isOver) {
                EXPECT_EQ(foundFor(user_, "stays"), path);
                const std::string other = foundFor(user_);
                EXPECT_TRUE(other.empty() || other == at("/Applications/Tool.app")) << other;
                clock_.advance(std::chrono::seconds(1));
            }
        });
    }
    for (int i = 0; i < 50; ++i) {
        add("/Applications/Tool.app");
        std::filesystem::remove_all(at("/Applications/Tool.app"));
    }
    isOver = true;
    for (std::thread& asker : askers) {
        asker.join();
    }
}

/// The bounds, with smaller numbers.
class AnIndexOfApplications : public ApplicationsTest {
protected:
    std::size_t countWith(const ApplicationLimits& limits) const {
        return ApplicationIndex::make({{at("/Applications")}, {user_, user_}}, clock_, limits)->all().size();
    }
    std::vector<std::string> complaints() const { return log_.at(host::LogLevel::Error); }

    const host::LogCapture log_;
};

TEST_F(AnIndexOfApplications, HasAsManyApplicationsAsItMay) {
    add("/Applications/A.app", "a");
    add("/Applications/B.app", "b");
    EXPECT_EQ(countWith({.applications = 2}), 2U);
    EXPECT_THAT(complaints(), IsEmpty());
    EXPECT_EQ(countWith({.applications = 1}), 1U);
    EXPECT_THAT(complaints(), ElementsAre("Applications from " + at("/Applications/B.app") +
                                          " on are left out: too many applications"));
}

TEST_F(AnIndexOfApplications, ReadsAsManyEntriesAsItMay) {
    add("/Applications/A.app", "a");
    add("/Applications/folder/B.app", "b");
    root_.folder().writeFile("Applications/folder/file", "");
    EXPECT_EQ(countWith({.entries = 4}), 2U);
    EXPECT_THAT(complaints(), IsEmpty());
    EXPECT_EQ(countWith({.entries = 3}), 1U);
    EXPECT_THAT(complaints(), ElementsAre("Applications from " + at("/Applications/folder") +
                                          " on are left out: too many directory entries"));
}

TEST_F(AnIndexOfApplications, ReadsAsManyBytesAsItMay) {
    add("/Applications/A.app", "a");
    add("/Applications/B.app", "b");
    const std::size_t size = listOf("a").size();
    EXPECT_EQ(countWith({.bytes = 2 * size}), 2U);
    EXPECT_THAT(complaints(), IsEmpty());
    EXPECT_EQ(countWith({.bytes = 2 * size - 1}), 1U);
    EXPECT_THAT(complaints(), ElementsAre("Applications from " + at("/Applications/B.app") +
                                          " on are left out: too large information property lists"));
}

TEST_F(AnIndexOfApplications, GoesAsDeepAsItMay) {
    add("/Applications/a/Tool.app");
    EXPECT_EQ(countWith({.depth = 2}), 1U);
    EXPECT_EQ(countWith({.depth = 1}), 0U);
}

}  // namespace
}  // namespace ksw::facts
