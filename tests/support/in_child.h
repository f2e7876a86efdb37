// in_child.h: a part of a test in a process of its own: with mounts that nobody else sees, or as an ordinary user.
#pragma once

#include <functional>
#include <string>

namespace ksw::test {

/// Runs `body` in a child that may mount; its failed expectations fail the test. False, and nothing was run, where
/// the kernel lets the process have no mounts of its own. Only while the process has one thread. Ends the child
/// after half a minute.
bool withOwnMounts(const std::function<void()>& body);

/// Runs `body` in a child that is an ordinary user, when this process is root, else in this process. Its failed
/// expectations fail the test.
void asOrdinaryUser(const std::function<void()>& body);

/// Mounts an empty file system of its own at a folder. In `withOwnMounts`.
void mountNew(const std::string& folder);
/// Shows a folder at another one as well.
void bindMount(const std::string& from, const std::string& to);
void unmount(const std::string& folder);

}  // namespace ksw::test
