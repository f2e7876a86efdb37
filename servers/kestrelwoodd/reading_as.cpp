#include "servers/kestrelwoodd/reading_as.h"

#include <grp.h>
#include <sys/fsuid.h>
#include <unistd.h>

namespace ksw::daemon {

namespace {

// Both calls answer the former value and never an error, so what holds now is learnt by asking for the impossible.
bool setFileUser(uid_t uid) {
    setfsuid(uid);
    return static_cast<uid_t>(setfsuid(static_cast<uid_t>(-1))) == uid;
}

bool setFileGroup(gid_t gid) {
    setfsgid(gid);
    return static_cast<gid_t>(setfsgid(static_cast<gid_t>(-1))) == gid;
}

}  // namespace

ReadingAs::ReadingAs(const Caller& caller) {
    if (caller.isRoot() || geteuid() != 0) {
        return;
    }
    isChanged_ = true;
    // The group first: without uid 0's rights it could not be set.
    ok_ = setFileGroup(caller.gid) && setFileUser(caller.uid);
}

ReadingAs::~ReadingAs() {
    if (isChanged_) {
        setFileUser(geteuid());
        setFileGroup(getegid());
    }
}

void leaveSupplementaryGroups() {
    if (geteuid() == 0) {
        // Denied in a container without the right to set groups, which then has none to give up either.
        static_cast<void>(setgroups(0, nullptr));
    }
}

}  // namespace ksw::daemon
