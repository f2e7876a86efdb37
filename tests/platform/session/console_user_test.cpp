// Who owns the console of a host.

#include <gtest/gtest.h>

#include <unistd.h>

#include <kestrelwood/KSWFunctions.h>

#include "tests/support/host_root.h"
#include "tests/support/sys_faults.h"

namespace ksw::test {
namespace {

TEST(TheConsole, BelongsToWhoOwnsItsFile) {
    const HostRoot root;
    root.folder().writeFile("dev/console", "");
    EXPECT_EQ(ConsoleUserUID(), ::geteuid());
}

TEST(TheConsole, BelongsToUserZeroWhenThereIsNone) {
    const HostRoot root;
    EXPECT_EQ(ConsoleUserUID(), 0U);
}

TEST(TheConsole, BelongsToUserZeroWhenItCannotBeExamined) {
    const HostRoot root;
    root.folder().writeFile("dev/console", "");
    SysFaults faults;
    faults.failAll(host::sys::Call::Statx, EACCES);
    EXPECT_EQ(ConsoleUserUID(), 0U);
}

}  // namespace
}  // namespace ksw::test
