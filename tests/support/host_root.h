// host_root.h: a host root of a test's own, in force while the object lives.
#pragma once

#include <string>

#include "tests/support/environment.h"
#include "tests/support/temp_folder.h"

namespace ksw::test {

/// Sets KESTRELWOOD_ROOT to a folder of its own, and puts back what was there. One at a time in a process, and
/// only while no other thread reads the environment.
class HostRoot {
public:
    HostRoot();
    HostRoot(const HostRoot&) = delete;
    HostRoot& operator=(const HostRoot&) = delete;

    const TempFolder& folder() const { return folder_; }

    /// Writes the flags file of the domain "Kestrelwood" with this feature on or off.
    void setFeature(const std::string& feature, bool on) const;

private:
    TempFolder folder_;
    ScopedVariable variable_;
};

}  // namespace ksw::test
