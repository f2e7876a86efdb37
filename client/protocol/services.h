// services.h: the names under which the two servers publish their services.
#pragma once

#include <string_view>

namespace ksw {

// The management daemon, in the system domain.
inline constexpr std::string_view kManagerService = "com.velmont.kestrelwood";
inline constexpr std::string_view kRosterService = "com.velmont.kestrelwood.roster";
inline constexpr std::string_view kRegistrarService = "com.velmont.kestrelwood.registrar";
/// The management daemon's side that speaks to one user.
inline constexpr std::string_view kNotificationsService = "com.velmont.kestrelwood.notifications";
/// The per-user agent, in its user's session.
inline constexpr std::string_view kAgentService = "com.velmont.kestrelwoodagent";

}  // namespace ksw
