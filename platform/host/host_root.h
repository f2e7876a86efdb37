// host_root.h: where the host's own files and sockets are. With KESTRELWOOD_ROOT set, all of them lie below that
// folder, which makes tests hermetic and lets an image be looked at from outside. Any thread; the environment is
// read on each call (environment.h).
#pragma once

#include <string>
#include <string_view>

#include <kestrelwood/values/audit_token.h>

namespace ksw::host {

/// The canonical path of the host root, without a slash at the end; empty when it is the machine's own.
std::string hostRoot();

/// Where `path`, an absolute path of the host, is found.
std::string hostPath(std::string_view path);

/// The same of a path that somebody who may be inside the host root has named, in the environment or in the
/// database of users: one that lies below the host root already stays as it is.
std::string hostPathOfNamed(std::string_view path);

/// The user that the system's services run as: root, or with a host root its owner. `kNoUser` when the host root
/// cannot be examined, so that nobody passes for it.
Uid hostRootOwner();

/// Whether the name may be a service's: 1 to 200 letters, digits, ".", "-" and "_", not beginning with ".".
bool isServiceName(std::string_view name);

/// The folder of the sockets of the system's services: `/run/kestrelwood`.
std::string systemRunFolder();
/// That of the calling user's session: `$XDG_RUNTIME_DIR/kestrelwood`, else `/run/user/UID/kestrelwood`.
std::string sessionRunFolder();
/// That of a user's session.
std::string userRunFolder(Uid uid);

/// The socket of a service in each of these; `name` must be a service's name.
std::string systemServicePath(std::string_view name);
std::string sessionServicePath(std::string_view name);
std::string userServicePath(Uid uid, std::string_view name);

}  // namespace ksw::host
