// reading_as.h: reads files that a user names with that user's rights.
#pragma once

#include "servers/kestrelwoodd/caller.h"

namespace ksw::daemon {

/// For its lifetime the calling thread opens files as the caller may, so that nobody learns through a daemon of
/// uid 0 what a file holds, or that it exists, that he may not see himself. Does nothing for uid 0, and in a daemon
/// that is not privileged. Belongs to one thread; not to be nested.
class ReadingAs {
public:
    explicit ReadingAs(const Caller& caller);
    ~ReadingAs();
    ReadingAs(const ReadingAs&) = delete;
    ReadingAs& operator=(const ReadingAs&) = delete;

    /// Whether the rights are the caller's; no file is to be touched when not.
    bool ok() const { return ok_; }

private:
    bool isChanged_ = false;
    bool ok_ = true;
};

/// Gives up the groups that the process was started with beyond its own, since a thread that reads as another user
/// would keep them. Before any thread exists. Nothing in a daemon that is not privileged.
void leaveSupplementaryGroups();

}  // namespace ksw::daemon
