// replacement.h: a new file that takes an old one's place in one step.
#pragma once

#include <string>

#include "platform/base/unique_fd.h"
#include "platform/facts/code_file.h"

namespace ksw::facts {

/// Written beside the old file; gone with the object unless `commit` has put it in its place. One thread. Errors:
/// `NotWritable` with the reason.
class Replacement {
public:
    /// Makes an empty file in the folder, which is borrowed.
    static Result<Replacement> create(int folder);
    Replacement(Replacement&& other) noexcept;
    ~Replacement();
    Replacement& operator=(Replacement&&) = delete;

    Status append(Bytes bytes);

    /// Gives the new file the mode, the owner and, where it can, the extended attributes of the old one, sees it on
    /// the disk, and lets it take the old one's name. `ChangedMeanwhile` when the name stands for another file by
    /// now, or the old file is no longer as `stamp` says.
    Status commit(const CodeFile& old, const FileStamp& stamp, const std::string& name);

private:
    Replacement(int folder, std::string temporaryName, UniqueFd file)
        : folder_(folder), name_(std::move(temporaryName)), file_(std::move(file)) {}

    Status takeOver(const CodeFile& old);

    int folder_;
    std::string name_;  // empty when there is nothing to remove
    UniqueFd file_;
};

}  // namespace ksw::facts
