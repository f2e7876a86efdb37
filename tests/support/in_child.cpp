#include "tests/support/in_child.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ksw::test {

namespace {

constexpr unsigned kSecondsMax = 30;
constexpr uid_t kOrdinaryUser = 65'534;
enum : int { kDone = 0, kFailed = 1, kRefused = 2 };

bool write(const char* path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    return file.good();
}

/// In a space of users of its own, and in others, in which this user is `uid` and of `gid`, and there is nobody
/// else.
bool leaveUsers(int others, uid_t uid, gid_t gid) {
    const std::string user = " " + std::to_string(::geteuid()) + " 1";
    const std::string group = " " + std::to_string(::getegid()) + " 1";
    return ::unshare(CLONE_NEWUSER | others) == 0 && write("/proc/self/uid_map", std::to_string(uid) + user) &&
           write("/proc/self/setgroups", "deny") && write("/proc/self/gid_map", std::to_string(gid) + group);
}

/// Root needs a space of mounts; anybody else a space of users as well, in which it is root, and so does a root
/// without the rights of one.
bool leaveMounts() {
    if ((::geteuid() != 0 || ::unshare(CLONE_NEWNS) != 0) && !leaveUsers(CLONE_NEWNS, ::geteuid(), ::getegid())) {
        return false;
    }
    return ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

/// Whether that is how a kernel, a sandbox or an administrator says no.
int resultOfRefusal(const char* wanted) {
    const int error = errno;
    std::fprintf(stderr, "not tested, no %s of its own: %s\n", wanted, std::strerror(error));
    const bool isForbidden =
        error == EPERM || error == EACCES || error == ENOSPC || error == ENOSYS || error == EINVAL;
    return isForbidden ? kRefused : kFailed;
}

int runInChild(const std::function<int()>& body) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(kSecondsMax);
        const int result = body();
        std::fflush(nullptr);
        ::_exit(result);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : kFailed;
}

int resultOf(const std::function<void()>& body) {
    body();
    return testing::Test::HasFailure() ? kFailed : kDone;
}

}  // namespace

void withOwnMounts(const std::function<void()>& body) {
    const int result = runInChild([&] { return leaveMounts() ? resultOf(body) : resultOfRefusal("mounts"); });
    EXPECT_NE(result, kFailed);
    if (result == kRefused) {
        testing::Test::RecordProperty("mounts", "refused");
    }
}

void asOrdinaryUser(const std::function<void()>& body) {
    if (::geteuid() != 0) {
        return body();
    }
    EXPECT_EQ(runInChild([&] {
                  const bool done = ::setresgid(kOrdinaryUser, kOrdinaryUser, kOrdinaryUser) == 0 &&
                                    ::setresuid(kOrdinaryUser, kOrdinaryUser, kOrdinaryUser) == 0;
                  return done ? resultOf(body) : int{kFailed};
              }),
              int{kDone});
}

bool enterUserNamespace(uid_t uid) {
    const bool isRoot = ::geteuid() == 0;
    if (isRoot &&
        (::setgroups(0, nullptr) != 0 || ::setresgid(uid, uid, uid) != 0 || ::setresuid(uid, uid, uid) != 0)) {
        return false;
    }
    // Whoever changes his uid has no right to his own entries in /proc any more.
    if (::prctl(PR_SET_DUMPABLE, 1) != 0 || !leaveUsers(0, uid, uid)) {
        static_cast<void>(resultOfRefusal("users"));
        return false;
    }
    return true;
}

void inUserNamespace(uid_t uid, const std::function<void()>& body) {
    EXPECT_NE(runInChild([&] { return enterUserNamespace(uid) ? resultOf(body) : int{kRefused}; }), int{kFailed});
}

void mountNew(const std::string& folder) {
    ASSERT_EQ(::mount("none", folder.c_str(), "tmpfs", 0, "size=1m"), 0);
}

void bindMount(const std::string& from, const std::string& to) {
    ASSERT_EQ(::mount(from.c_str(), to.c_str(), nullptr, MS_BIND, nullptr), 0);
}

void unmount(const std::string& folder) {
    ASSERT_EQ(::umount2(folder.c_str(), MNT_DETACH), 0);
}

}  // namespace ksw::test
