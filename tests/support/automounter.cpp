#include "tests/support/automounter.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ksw::test {

SleepingAutomounter::SleepingAutomounter() : process_(::fork()) {
    if (process_ == 0) {
        ::setpgid(0, 0);
        ::pause();
        ::_exit(0);
    }
    ::setpgid(process_, process_);
}

SleepingAutomounter::~SleepingAutomounter() {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
}

bool SleepingAutomounter::takeOver(const std::string& folder, Map map) const {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe(ends.data()), 0);
    const std::string options = "fd=" + std::to_string(ends[1]) + ",pgrp=" + std::to_string(process_) +
                                ",minproto=5,maxproto=5," + (map == Map::Direct ? "direct" : "indirect");
    if (::mount("sleeping", folder.c_str(), "autofs", 0, options.c_str()) == 0) {
        return true;
    }
    const int error = errno;
    EXPECT_TRUE(error == EPERM || error == ENODEV) << std::strerror(error);
    std::fprintf(stderr, "not tested, no automounter may be set up here: %s\n", std::strerror(error));
    return false;
}

/// The kernel lets the automounter's own group of processes pass, and nobody else.
template <class Act>
void SleepingAutomounter::asItself(Act act) const {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(::setpgid(0, process_) == 0 && act() ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

void SleepingAutomounter::addMounted(const std::string& folder) const {
    asItself([&] {
        return ::mkdir(folder.c_str(), 0755) == 0 &&
               ::mount("none", folder.c_str(), "tmpfs", 0, "size=1m,mode=755") == 0;
    });
}

void SleepingAutomounter::addUnmounted(const std::string& folder) const {
    asItself([&] { return ::mkdir(folder.c_str(), 0755) == 0; });
}

}  // namespace ksw::test
