#include "platform/host/sandbox.h"

#include <gtest/gtest.h>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "platform/host/peer_identity.h"
#include "platform/host/process_facts.h"
#include "tests/support/child_program.h"
#include "tests/support/sys_faults.h"
#include "tests/support/temp_folder.h"

namespace ksw::host {
namespace {

using test::ChildProgram;

/// In the child: says whether it could do what it should, and waits to be killed.
void sayAndWait(bool isDone) {
    const char answer = isDone ? 'y' : 'n';
    static_cast<void>(::write(1, &answer, 1) == 1);
    while (true) {
        ::pause();
    }
}

/// Lets every system call pass: that it is a filter is all that counts.
bool filterSystemCalls() {
    sock_filter allow{BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW};
    const sock_fprog program{1, &allow};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &program) == 0;
}

/// Whether the test itself runs under a profile, as in many a container: then so does whatever it starts.
bool areWeSandboxed() {
    for (const char* name : {"attr/apparmor/current", "attr/current"}) {
        if (const Result<std::string> label = processFile(::getpid(), name)) {
            return isEnforcedProfile(*label);
        }
    }
    return false;
}

bool areWeFiltered() {
    return hasSystemCallFilter(*processFile(::getpid(), "status"));
}

TEST(ASandbox, IsNotSeenOfAnOrdinaryProcess) {
    const ChildProgram child([] { sayAndWait(true); });
    ASSERT_EQ(child.awaitAnswer(), "y");
    EXPECT_EQ(isSandboxed(child.token()), areWeSandboxed());
    EXPECT_EQ(isSandboxed(*auditTokenForPid(::getpid())), areWeSandboxed());
}

TEST(ASandbox, IsAFilterInAUserNamespaceOfItsOwn) {
    ChildProgram child([] { sayAndWait(::unshare(CLONE_NEWUSER) == 0 && filterSystemCalls()); });
    // Where no namespace may be made there is no such sandbox either.
    const bool isMade = child.awaitAnswer() == "y";
    const AuditToken token = child.token();
    EXPECT_EQ(isSandboxed(token), isMade || areWeSandboxed());
    RecordProperty("made", isMade ? "yes" : "no");
    child.end();
    EXPECT_FALSE(isSandboxed(token));
}

TEST(ASandbox, IsNeitherAFilterNorANamespaceAlone) {
    const ChildProgram filtered([] { sayAndWait(filterSystemCalls()); });
    ASSERT_EQ(filtered.awaitAnswer(), "y");
    EXPECT_EQ(isSandboxed(filtered.token()), areWeSandboxed());
    const ChildProgram apart([] { sayAndWait(::unshare(CLONE_NEWUSER) == 0); });
    const bool isApart = apart.awaitAnswer() == "y";
    EXPECT_EQ(isSandboxed(apart.token()), areWeSandboxed() || (isApart && areWeFiltered()));
}

TEST(ASandbox, IsARootWithAFlatpaksMark) {
    const test::TempFolder folder;
    folder.writeFile("app/.flatpak-info", "[Application]\n");
    folder.makeFolder("plain");
    folder.makeFolder("odd/.flatpak-info");
    const auto isSandboxedIn = [&](const char* root) {
        const ChildProgram child([path = folder.at(root)] {
            const bool isRoot = ::geteuid() == 0 || ::unshare(CLONE_NEWUSER) == 0;
            sayAndWait(isRoot && ::chroot(path.c_str()) == 0);
        });
        // Where nobody but root may do this, only root sees it.
        const bool isDone = child.awaitAnswer() == "y";
        return isDone ? isSandboxed(child.token()) : std::string_view(root) == "app" || areWeSandboxed();
    };
    EXPECT_TRUE(isSandboxedIn("app"));
    EXPECT_EQ(isSandboxedIn("plain"), areWeSandboxed());
    EXPECT_EQ(isSandboxedIn("odd"), areWeSandboxed());
}

TEST(ASandbox, IsNotSeenOfAProcessWithAnothersNumber) {
    const ChildProgram child([] { sayAndWait(::unshare(CLONE_NEWUSER) == 0 && filterSystemCalls()); });
    child.awaitAnswer();
    AuditToken token = child.token();
    token.words[7] ^= 1U;
    EXPECT_FALSE(isSandboxed(token));
    EXPECT_FALSE(isSandboxed(AuditToken{}));
}

TEST(ASandbox, IsNotSeenWhereNothingMayBeLookedAt) {
    const ChildProgram child([] { sayAndWait(::unshare(CLONE_NEWUSER) == 0 && filterSystemCalls()); });
    child.awaitAnswer();
    const AuditToken token = child.token();
    test::SysFaults faults;
    faults.failAll(sys::Call::Open, EACCES);
    EXPECT_FALSE(isSandboxed(token));
}

TEST(ALabel, OfAnEnforcedProfileIsASandbox) {
    EXPECT_TRUE(isEnforcedProfile("snap.firefox.firefox (enforce)\n"));
    EXPECT_TRUE(isEnforcedProfile("/usr/sbin/cupsd (enforce)"));
    EXPECT_TRUE(isEnforcedProfile("a//&b (enforce)\n"));
    EXPECT_TRUE(isEnforcedProfile(std::string_view("mine (enforce)\n\0", 16)));
}

TEST(ALabel, OfAnythingElseIsNone) {
    for (const char* label : {"", "\n", "unconfined\n", "snap.x.y (complain)\n", "a//&b (mixed)\n", " (enforce)\n",
                              "(enforce)", "x (enforce) y", "system_u:system_r:init_t:s0", "x (unconfined)\n"}) {
        EXPECT_FALSE(isEnforcedProfile(label)) << label;
    }
}

TEST(AStatus, TellsOfAFilterOnSystemCalls) {
    EXPECT_TRUE(hasSystemCallFilter("Name:\tx\nNoNewPrivs:\t1\nSeccomp:\t2\nSeccomp_filters:\t1\n"));
    EXPECT_FALSE(hasSystemCallFilter("Name:\tx\nSeccomp:\t0\n"));
    EXPECT_FALSE(hasSystemCallFilter("Name:\tx\nSeccomp:\t1\n"));
    EXPECT_FALSE(hasSystemCallFilter("Name:\tSeccomp:\\n2\nSeccomp:\t20\n"));
    EXPECT_FALSE(hasSystemCallFilter(""));
}

}  // namespace
}  // namespace ksw::host
