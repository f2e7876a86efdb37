#include "servers/kestrelwoodd/reading_as.h"

#include <grp.h>
#include <unistd.h>

#include "platform/host/file_rights.h"

namespace ksw::daemon {

ReadingAs::ReadingAs(const Caller& caller) {
    if (caller.isRoot() || geteuid() != 0) {
        return;
    }
    isChanged_ = true;
    ok_ = host::setFileRights({caller.uid, caller.gid});
}

ReadingAs::~ReadingAs() {
    if (isChanged_) {
        static_cast<void>(host::setFileRights({geteuid(), getegid()}));
    }
}

void leaveSupplementaryGroups() {
    if (geteuid() == 0) {
        // Denied in a container without the right to set groups, which then has none to give up either.
        static_cast<void>(setgroups(0, nullptr));
    }
}

}  // namespace ksw::daemon
