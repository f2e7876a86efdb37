// quiet_lookup.h: looks at files without making the host mount anything: a folder of an automounter, where a mere
// name would make a lookup wait for a server or a drive, is left only for what is mounted there already. Symbolic
// links are followed. Any thread. What is mounted already is asked like any other file system, and blocks as long
// as that does.
#pragma once

#include <cstdint>
#include <string>

#include "platform/base/result.h"
#include "platform/host/file_facts.h"

namespace ksw::host {

struct Sighting {
    FileFacts facts;
    /// The path leads through no symbolic link. False also where that is not known without more work.
    bool isWithoutLinks = false;
};

/// Looks at the file at an absolute path. Error: POSIX, ENOMEDIUM when nothing is mounted yet where the path leads
/// through.
Result<Sighting> lookQuietly(const std::string& path);

struct Volume {
    /// What the file system calls itself, 0 when it does not: the same when it is mounted again, on most.
    std::uint64_t identifier = 0;
    /// An automounter's folder, where something would be mounted.
    bool isUnmounted = false;
};

/// The volume of the file at a path to which `lookQuietly` has found a way.
Result<Volume> volumeOf(const std::string& path);

}  // namespace ksw::host
