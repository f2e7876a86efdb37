// in_child.h: a part of a test in a process of its own: with mounts that nobody else sees, or as an ordinary user.
#pragma once

#include <functional>
#include <string>

#include <sys/types.h>

namespace ksw::test {

/// Runs `body` in a child that may mount, for an ordinary user as root of a space of users of its own; its failed
/// expectations fail the test. Where the kernel forbids a process mounts of its own, nothing is run and the test
/// says so aloud; that anything else keeps it from them fails the test. Only while the process has one thread. Ends
/// the child after half a minute.
void withOwnMounts(const std::function<void()>& body);

/// Runs `body` in a child that is an ordinary user, when this process is root, else in this process. Its failed
/// expectations fail the test.
void asOrdinaryUser(const std::function<void()>& body);

/// Makes this process the user `uid` of a user namespace that has no other user, uid 0 neither, as a user's service
/// manager starts services; a root is that user outside of it too from then on, anybody else stays who he is. False
/// where the kernel forbids it, which is said aloud then. Only while the process has one thread.
bool enterUserNamespace(uid_t uid);

/// Runs `body` in a child that has entered one; as `withOwnMounts` otherwise.
void inUserNamespace(uid_t uid, const std::function<void()>& body);

/// Mounts an empty file system of its own at a folder. In `withOwnMounts`.
void mountNew(const std::string& folder);
/// Shows a folder at another one as well.
void bindMount(const std::string& from, const std::string& to);
void unmount(const std::string& folder);

}  // namespace ksw::test
