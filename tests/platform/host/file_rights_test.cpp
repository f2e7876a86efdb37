#include "platform/host/file_rights.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

namespace ksw::host {
namespace {

constexpr FileRights kSomebody{4501, 4502};

void expectRights(uid_t uid, gid_t gid) {
    EXPECT_EQ(fileRights().uid, uid);
    EXPECT_EQ(fileRights().gid, gid);
}

TEST(FileRights, AreTheProcessesOwnFirst) {
    expectRights(geteuid(), getegid());
}

TEST(FileRights, OfAnotherAreAThreadsInAPrivilegedProcessOnlyAndItsOwnForAWhile) {
    const bool isPrivileged = geteuid() == 0;
    std::thread([isPrivileged] {
        EXPECT_EQ(setFileRights(kSomebody), isPrivileged);
        const FileRights taken = isPrivileged ? kSomebody : FileRights{geteuid(), getegid()};
        {
            const OwnRights own;
            expectRights(geteuid(), getegid());
            const OwnRights again;
            expectRights(geteuid(), getegid());
        }
        expectRights(taken.uid, taken.gid);
    }).join();
    expectRights(geteuid(), getegid());
}

}  // namespace
}  // namespace ksw::host
