// file_rights.h: as whom a thread opens files. A server of uid 0 lets a thread open what a user names with that
// user's rights; what belongs to the host itself it opens with its own all the same.
#pragma once

#include <sys/types.h>

namespace ksw::host {

/// As whom the calling thread opens files.
struct FileRights {
    uid_t uid;
    gid_t gid;
};

FileRights fileRights();
/// False when they are not to be had; then some of them may have changed. Needs a privileged process.
[[nodiscard]] bool setFileRights(const FileRights& rights);

/// For its lifetime the calling thread opens files as the process does, whoever it opens them as otherwise. For
/// what is remembered for everybody, and would be wrong for all if one could not see it. Belongs to one thread;
/// does nothing in a process that is not privileged.
class OwnRights {
public:
    OwnRights();
    ~OwnRights();
    OwnRights(const OwnRights&) = delete;
    OwnRights& operator=(const OwnRights&) = delete;

private:
    FileRights former_;
    bool isChanged_ = false;
};

}  // namespace ksw::host
