// Uid 0 as it looks from a user namespace that has no number for it.
#include "platform/host/hidden_root.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "platform/host/host_root.h"
#include "platform/host/peer_identity.h"
#include "platform/host/sys.h"
#include "tests/support/environment.h"
#include "tests/support/in_child.h"
#include "tests/support/temp_folder.h"

namespace ksw::host {
namespace {

constexpr Uid kOverflow = 65'534;
constexpr Uid kUser = 54'321;
constexpr std::string_view kUsersOwn = "     54321       1000          1\n";

/// Who is shown by the number for everybody in this process's namespace. Of root's files there is one everywhere.
Uid shownForRoot() {
    return sys::statx("/", 0, STATX_UID)->stx_uid;
}

/// An accepted connection to a listener at the path.
UniqueFd acceptedAt(const std::string& path) {
    const UniqueFd listener = *sys::socket(AF_UNIX, SOCK_STREAM);
    EXPECT_TRUE(sys::bindUnix(listener.get(), path).ok());
    EXPECT_TRUE(sys::listen(listener.get(), 1).ok());
    const UniqueFd client = *sys::socket(AF_UNIX, SOCK_STREAM);
    EXPECT_TRUE(sys::connectUnix(client.get(), path, std::chrono::seconds(5)).ok());
    return std::move(**sys::accept(listener.get(), false));
}

void changeMode(const std::string& path, mode_t mode) {
    ASSERT_EQ(::chmod(path.c_str(), mode), 0);
}

TEST(AUserNamespace, HidesRootWhenItHasNeitherIts0NorTheOneOutside) {
    EXPECT_EQ(hiddenRootIn(kUsersOwn, "65534\n"), kOverflow);
    EXPECT_EQ(hiddenRootIn("1000 1000 1\n2000 100000 10\n", "65534\n"), kOverflow);
    EXPECT_EQ(hiddenRootIn("0 0 4294967295\n", "65534\n"), kNoUser);
    EXPECT_EQ(hiddenRootIn("0 1000 1\n", "65534\n"), kNoUser);
    EXPECT_EQ(hiddenRootIn("1000 0 1\n", "65534\n"), kNoUser);
    EXPECT_EQ(hiddenRootIn("1000 1000 1\n0 100000 1000\n", "65534\n"), kNoUser);
}

TEST(AUserNamespace, HidesRootBehindTheNumberThatTheKernelHasForEverybody) {
    EXPECT_EQ(hiddenRootIn(kUsersOwn, "4711\n"), 4711U);
    EXPECT_EQ(hiddenRootIn(kUsersOwn, ""), kOverflow) << "where /proc is shown without it";
    EXPECT_EQ(hiddenRootIn(kUsersOwn, "4294967295"), kNoUser);
}

TEST(AUserNamespace, ThatHasThatNumberItselfHidesNobodyBehindIt) {
    EXPECT_EQ(hiddenRootIn("65534 65534 1\n", "65534\n"), kNoUser);
    EXPECT_EQ(hiddenRootIn("65000 1000 535\n", "65534\n"), kNoUser);
    EXPECT_EQ(hiddenRootIn("65000 1000 534\n", "65534\n"), kOverflow);
}

TEST(AUserNamespace, WhoseMapIsNoneHidesNobody) {
    EXPECT_EQ(hiddenRootIn("1000", "65534\n"), kNoUser);
    EXPECT_EQ(hiddenRootIn("1000 1000", "65534\n"), kNoUser);
}

TEST(HiddenRoot, IsNobodyOutsideOfANamespace) {
    const test::TempFolder folder;
    const UniqueFd accepted = acceptedAt(folder.at("s"));
    for (const Uid shown : {Uid{0}, kOverflow, Uid{1000}, kNoUser}) {
        EXPECT_EQ(listenerAt("/run/s", shown), shown);
        EXPECT_EQ(callerThrough(accepted.get(), shown), shown);
        EXPECT_EQ(ownerAt("/", shown), shown);
    }
}

TEST(HiddenRoot, IsWhoeverListensWhereOnlyRootMakesFolders) {
    test::inUserNamespace(kUser, [] {
        const Uid shown = shownForRoot();
        ASSERT_NE(shown, 0U);
        EXPECT_EQ(listenerAt("/s", shown), 0U);
        EXPECT_EQ(listenerAt("/usr/lib/s", shown), 0U);
        EXPECT_EQ(ownerAt("/usr", shown), 0U);
        EXPECT_EQ(listenerAt("/s", kUser), kUser) << "a number of the namespace is whom it says";
        EXPECT_EQ(listenerAt("/s", shown - 1), shown - 1);
    });
}

TEST(HiddenRoot, IsNobodyWhereOthersMayWrite) {
    const test::TempFolder folder;
    folder.makeFolder("in");
    changeMode(folder.path(), 0755);
    test::inUserNamespace(kUser, [&] {
        const Uid shown = shownForRoot();
        // Sticky: whoever makes a folder there keeps it.
        ASSERT_EQ(sys::statx("/tmp", 0, STATX_MODE)->stx_mode & 07777U, 01777U);
        EXPECT_EQ(listenerAt("/tmp/s", shown), shown);
        EXPECT_EQ(listenerAt(folder.at("s"), shown), shown);
        EXPECT_EQ(listenerAt(folder.at("in/s"), shown), shown);
        EXPECT_EQ(ownerAt(folder.at("in"), shown), kNoUser);
        EXPECT_EQ(listenerAt("/nowhere/s", shown), shown);
        EXPECT_EQ(listenerAt("s", shown), shown);
        EXPECT_EQ(listenerAt("", shown), shown);
    });
}

TEST(HiddenRoot, IsNobodyBelowAFolderOfOnesOwn) {
    test::inUserNamespace(kUser, [] {
        const test::TempFolder folder;
        const std::string deep = folder.makeFolder("in/it");
        EXPECT_EQ(listenerAt(deep + "/s", shownForRoot()), shownForRoot());
        EXPECT_EQ(ownerAt(deep, shownForRoot()), kNoUser);
        EXPECT_EQ(ownerAt(deep, kUser), kUser);
    });
}

TEST(HiddenRoot, IsWhoeverElseComesThroughFoldersThatAreClosedToOthers) {
    test::inUserNamespace(kUser, [] {
        const test::TempFolder folder;
        const std::string inner = folder.makeFolder("kestrelwood");
        changeMode(inner, 0700);
        const UniqueFd accepted = acceptedAt(inner + "/s");
        const Uid shown = shownForRoot();
        EXPECT_EQ(callerThrough(accepted.get(), shown), 0U);
        EXPECT_EQ(callerThrough(accepted.get(), kUser), kUser);
        EXPECT_EQ(PeerIdentity::ofSocket(accepted.get())->uid(), kUser);
        for (const mode_t mode : {0701U, 0710U, 0755U, 0704U}) {
            changeMode(inner, mode);
            EXPECT_EQ(callerThrough(accepted.get(), shown), shown) << mode;
            changeMode(inner, 0700);
            changeMode(folder.path(), mode);
            EXPECT_EQ(callerThrough(accepted.get(), shown), shown) << mode;
            changeMode(folder.path(), 0700);
        }
        EXPECT_EQ(callerThrough(accepted.get(), shown), 0U);
    });
}

TEST(HiddenRoot, IsNobodyThroughASocketWithoutAPlace) {
    test::inUserNamespace(kUser, [] {
        const auto pair = sys::socketPair(SOCK_STREAM);
        EXPECT_EQ(callerThrough(pair->first.get(), shownForRoot()), shownForRoot());
        EXPECT_EQ(callerThrough(-1, shownForRoot()), shownForRoot());
    });
}

TEST(TheOwnerOfAHostRoot, IsKnownByWhatIsAboveIt) {
    test::inUserNamespace(kUser, [] {
        const test::ScopedVariable usr("KESTRELWOOD_ROOT", "/usr");
        EXPECT_EQ(hostRootOwner(), 0U);
        {
            const test::ScopedVariable tmp("KESTRELWOOD_ROOT", "/tmp");
            EXPECT_EQ(hostRootOwner(), kNoUser);
        }
        const test::TempFolder own;
        const test::ScopedVariable root("KESTRELWOOD_ROOT", own.path());
        EXPECT_EQ(hostRootOwner(), kUser);
    });
}

}  // namespace
}  // namespace ksw::host
