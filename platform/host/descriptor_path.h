// descriptor_path.h: the way to an open file that no renaming changes.
#pragma once

#include <string>

namespace ksw::host {

/// A path that leads to what a descriptor of the process is open on, O_PATH included, whatever has become of its
/// name. Needs /proc.
inline std::string descriptorPath(int fd) {
    return "/proc/self/fd/" + std::to_string(fd);
}

}  // namespace ksw::host
