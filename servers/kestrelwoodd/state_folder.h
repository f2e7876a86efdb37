// state_folder.h: the folder that the daemon's files lie in, and the lock that keeps it one daemon's.
#pragma once

#include <string>

#include "platform/base/result.h"
#include "platform/base/unique_fd.h"

namespace ksw::daemon {

/// The folder of the daemon's state under the host root.
class StateFolder {
public:
    /// Makes the folder, and those above it, when it is missing (it is its owner's alone), and takes its lock for
    /// as long as the object lives. Error: the folder cannot be made, or another daemon has the lock.
    static Result<StateFolder> take();

    std::string at(std::string_view name) const { return path_ + "/" + std::string(name); }

private:
    StateFolder(std::string path, UniqueFd lock) : path_(std::move(path)), lock_(std::move(lock)) {}

    std::string path_;
    UniqueFd lock_;
};

}  // namespace ksw::daemon
