#include "platform/host/file_rights.h"

#include <sys/fsuid.h>
#include <unistd.h>

namespace ksw::host {

// Both calls answer the former value and never an error, so what holds now is learnt by asking for the impossible.

FileRights fileRights() {
    return {static_cast<uid_t>(setfsuid(static_cast<uid_t>(-1))),
            static_cast<gid_t>(setfsgid(static_cast<gid_t>(-1)))};
}

bool setFileRights(const FileRights& rights) {
    // The group first: without uid 0's rights it could not be set.
    setfsgid(rights.gid);
    setfsuid(rights.uid);
    const FileRights now = fileRights();
    return now.uid == rights.uid && now.gid == rights.gid;
}

OwnRights::OwnRights() : former_{geteuid(), getegid()} {
    if (former_.uid != 0) {
        return;
    }
    const FileRights now = fileRights();
    isChanged_ = now.uid != former_.uid || now.gid != former_.gid;
    if (isChanged_) {
        static_cast<void>(setFileRights(former_));
        former_ = now;
    }
}

OwnRights::~OwnRights() {
    if (isChanged_) {
        static_cast<void>(setFileRights(former_));
    }
}

}  // namespace ksw::host
