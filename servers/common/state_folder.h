// state_folder.h: the folder that a server's files lie in, and the lock that keeps it one server's.
#pragma once

#include <string>
#include <string_view>

#include <sys/types.h>

#include "platform/base/result.h"
#include "platform/base/unique_fd.h"

namespace ksw::servers {

/// The folder of a server's state.
class StateFolder {
public:
    /// Makes the folder `place` ("/a/b") below the folder `base`, and those between, when they are missing (it is
    /// its owner's alone, those have the mode `mode`), and takes the lock of `program` in it for as long as the
    /// object lives. Error: the folder cannot be made, or another one has the lock.
    static Result<StateFolder> take(const std::string& base, std::string_view place, std::string_view program,
                                    mode_t mode = 0755);

    std::string at(std::string_view name) const { return path_ + "/" + std::string(name); }

private:
    StateFolder(std::string path, UniqueFd lock) : path_(std::move(path)), lock_(std::move(lock)) {}

    std::string path_;
    UniqueFd lock_;
};

}  // namespace ksw::servers
