#include "platform/host/quiet_lookup.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include <kestrelwood/values/url.h>

#include "platform/host/sys.h"
#include "tests/support/automounter.h"
#include "tests/support/in_child.h"
#include "tests/support/sys_faults.h"
#include "tests/support/temp_folder.h"

namespace ksw::host {
namespace {

using sys::Call;

class AQuietLook : public testing::Test {
protected:
    AQuietLook() {
        path_ = folder_.writeFile("real/sub/a", "");
        std::filesystem::create_directory_symlink("real/./sub/../sub", folder_.at("relative"));
        std::filesystem::create_directory_symlink(folder_.at("real"), folder_.at("absolute"));
        std::filesystem::create_symlink("loop", folder_.at("loop"));
        std::filesystem::create_symlink("none", folder_.at("dangling"));
    }

    void expectSeen(const std::string& path, bool isWithoutLinks) const {
        const Result<Sighting> seen = lookQuietly(path);
        ASSERT_TRUE(seen.ok()) << seen.error().description();
        EXPECT_EQ(seen->facts.identifier, fileFacts(path_)->identifier) << path;
        EXPECT_EQ(seen->isWithoutLinks, isWithoutLinks) << path;
    }

    test::TempFolder folder_;
    std::string path_;
};

TEST_F(AQuietLook, SeesAFileInThreeCalls) {
    const test::SysFaults faults;
    ASSERT_TRUE(lookQuietly(path_)->facts.isRegularFile);
    EXPECT_EQ(faults.count(Call::Open), 1U);
    EXPECT_EQ(faults.count(Call::Statx), 1U);
    EXPECT_EQ(faults.count(Call::StatFs), 0U);
}

TEST_F(AQuietLook, FollowsLinks) {
    expectSeen(path_, true);
    expectSeen(folder_.at("real/../real//sub/./a"), true);
    expectSeen(folder_.at("relative/a"), false);
    expectSeen(folder_.at("absolute/sub/a"), false);
}

TEST_F(AQuietLook, SeesTheSameStepByStep) {
    // What the kernel has not in memory, it has to be asked for in steps.
    for (const int refusal : {EAGAIN, ENOSYS, EINVAL, EPERM}) {
        for (const std::string name : {"real/sub/a", "real/../real//sub/./a", "relative/a", "absolute/sub/a"}) {
            test::SysFaults faults;
            faults.failNth(Call::Open, 1, refusal);
            expectSeen(folder_.at(name), false);
            EXPECT_GE(faults.count(Call::Open), 6U);
        }
    }
}

TEST_F(AQuietLook, SaysWhyThereIsNothingStepByStepAsAtOnce) {
    const std::pair<std::string, int> reasons[] = {
        {"none", ENOENT},  {"dangling", ENOENT},      {"loop", ELOOP},
        {"loop/a", ELOOP}, {"real/sub/a/b", ENOTDIR}, {std::string(256, 'n'), ENAMETOOLONG}};
    for (const auto& [name, code] : reasons) {
        EXPECT_EQ(lookQuietly(folder_.at(name)).error().code(), code) << name;
        test::SysFaults faults;
        faults.failNth(Call::Open, 1, EAGAIN);
        EXPECT_EQ(lookQuietly(folder_.at(name)).error().code(), code) << name;
    }
    EXPECT_EQ(lookQuietly(folder_.at("a") + std::string("\0b", 2)).error().code(), EINVAL);
}

TEST_F(AQuietLook, StopsAtLinksThatNeverEnd) {
    // Each one doubles what is left to go.
    const std::string step = "x/x/x/x/x/x/x/x/";
    std::filesystem::create_directory_symlink(std::string(2'000, '/') + folder_.path() + "/grow/" + step,
                                              folder_.at("grow"));
    test::SysFaults faults;
    faults.failNth(Call::Open, 1, EAGAIN);
    EXPECT_EQ(lookQuietly(folder_.at("grow")).error().code(), ELOOP);
    EXPECT_LT(faults.count(Call::Open), 500U);
}

TEST_F(AQuietLook, PassesOnWhatTheFileSystemRefuses) {
    for (const Call call : {Call::Statx, Call::StatFs, Call::ReadLink}) {
        test::SysFaults faults;
        faults.failNth(Call::Open, 1, EAGAIN);
        faults.failAll(call, EIO);
        EXPECT_EQ(lookQuietly(folder_.at("relative/a")).error().code(), EIO);
    }
}

TEST_F(AQuietLook, TellsVolumesApart) {
    const Result<Volume> here = volumeOf(path_);
    EXPECT_FALSE(here->isUnmounted);
    EXPECT_EQ(volumeOf(folder_.path())->identifier, here->identifier);
    EXPECT_NE(volumeOf("/proc")->identifier, here->identifier);
    EXPECT_EQ(volumeOf(folder_.at("none")).error().code(), ENOENT);
}

using AnAutomountersFolder = AQuietLook;
using Map = test::SleepingAutomounter::Map;

/// What the kernel has in memory, and the same when it has to be asked in steps.
template <class Look>
void atOnceAndStepByStep(Look look) {
    look();
    test::SysFaults faults;
    faults.failNth(Call::Open, 1, EAGAIN);
    look();
}

TEST_F(AnAutomountersFolder, LeadsOnlyToWhatIsMountedAlready) {
    test::withOwnMounts([&] {
        const test::SleepingAutomounter automounter;
        if (!automounter.takeOver(folder_.makeFolder("net"), Map::Indirect)) {
            return;
        }
        automounter.addMounted(folder_.at("net/mounted"));
        automounter.addUnmounted(folder_.at("net/idle"));
        folder_.writeFile("net/mounted/sub/a", "");
        std::filesystem::create_symlink(folder_.at("net/mounted/./sub/a"), folder_.at("into"));
        std::filesystem::create_symlink("net/unknown/a", folder_.at("astray"));
        const std::pair<std::string, int> ends[] = {
            {"net/idle", ENOMEDIUM},           {"net/idle/a", ENOMEDIUM}, {"net/unknown", ENOMEDIUM},
            {"net/unknown/a", ENOMEDIUM},      {"astray", ENOMEDIUM},     {"net/mounted/none", ENOENT},
            {"net/mounted/../idle", ENOMEDIUM}};
        atOnceAndStepByStep([&] {
            for (const std::string name : {"net/mounted/sub/a", "into", "net/../net/mounted/sub/a"}) {
                const Result<Sighting> seen = lookQuietly(folder_.at(name));
                EXPECT_TRUE(seen && seen->facts.isRegularFile) << name;
            }
            for (const auto& [name, code] : ends) {
                const Result<Sighting> seen = lookQuietly(folder_.at(name));
                EXPECT_EQ(seen ? 0 : seen.error().code(), code) << name;
            }
        });
    });
}

TEST_F(AnAutomountersFolder, IsLeftForNothingByAKernelThatCannotTellWhatIsMounted) {
    test::withOwnMounts([&] {
        const test::SleepingAutomounter automounter;
        if (!automounter.takeOver(folder_.makeFolder("net"), Map::Indirect)) {
            return;
        }
        automounter.addMounted(folder_.at("net/mounted"));
        folder_.writeFile("net/mounted/a", "");
        // The whole way at once, then the root and each folder down to the automounter's.
        const auto before = static_cast<unsigned>(1 + pathComponents(folder_.at("net")).size());
        for (const int refusal : {EAGAIN, ENOSYS, EINVAL, EPERM}) {
            test::SysFaults faults;
            faults.failNth(Call::Open, 1, refusal);
            faults.failFrom(Call::Open, before + 1, refusal);
            EXPECT_EQ(lookQuietly(folder_.at("net/mounted/a")).error().code(), ENOMEDIUM);
            EXPECT_EQ(faults.count(Call::Open), before + 3);
        }
        test::SysFaults faults;
        faults.failNth(Call::Open, 1, EAGAIN);
        faults.failFrom(Call::Open, before + 1, EACCES);
        EXPECT_EQ(lookQuietly(folder_.at("net/mounted/a")).error().code(), EACCES);
    });
}

class ALookupCall : public AQuietLook {};

TEST_F(ALookupCall, NamesThePathThatItFailsFor) {
    const std::string none = folder_.at("none");
    EXPECT_EQ(sys::fileHandle(none).error().localizedDescription(),
              "name_to_handle_at(\"" + none + "\"): No such file or directory");
    EXPECT_EQ(sys::checkExecutable(none).error().localizedDescription(),
              "faccessat(\"" + none + "\"): No such file or directory");
    EXPECT_EQ(sys::FolderEntries::open(none).error().code(), ENOENT);
    EXPECT_EQ(sys::FolderEntries::open(path_).error().code(), ENOTDIR);
    const std::string withNul = path_ + std::string("\0b", 2);
    EXPECT_EQ(sys::fileHandle(withNul).error().code(), EINVAL);
    EXPECT_EQ(sys::checkExecutable(withNul).error().code(), EINVAL);
    EXPECT_EQ(sys::openIfKnown(withNul, sys::Links::Follow).error().code(), EINVAL);
}

TEST_F(ALookupCall, RefusesAHandleThatIsNone) {
    const Result<UniqueFd> folder = sys::open(folder_.path(), O_RDONLY | O_DIRECTORY);
    EXPECT_EQ(sys::openByHandle(folder->get(), 1, {}).error().code(), EINVAL);
    EXPECT_EQ(sys::openByHandle(folder->get(), 1, Data(sys::kFileHandleMax + 1)).error().code(), EINVAL);
    EXPECT_FALSE(sys::openByHandle(folder->get(), 1, Data(sys::kFileHandleMax, 0xFF)).ok());
    EXPECT_FALSE(sys::openByHandle(folder->get(), -1, Data{1}).ok());
}

}  // namespace
}  // namespace ksw::host
