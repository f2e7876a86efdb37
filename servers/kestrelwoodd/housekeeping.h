// housekeeping.h: what the daemon does for requests that are not about a single item: settings and switches.
#pragma once

#include <optional>
#include <string>
#include <tuple>
#include <type_traits>

#include "servers/kestrelwoodd/authorisation.h"
#include "servers/kestrelwoodd/registry.h"
#include "servers/kestrelwoodd/report.h"

namespace ksw::daemon {

/// Serves requests. Any thread may call anything; what changes something waits for the disk.
class Housekeeping {
public:
    /// `registry` is borrowed and outlives this.
    explicit Housekeeping(Registry& registry) : registry_(registry) {}

    /// An operation takes the arguments of its method as they come.
    template <class... P>
    using Operation = Report (Housekeeping::*)(const Caller& caller, const P&... arguments);

    /// Carries out the operation if the rule lets the caller, else answers -97.
    template <class... P>
    Report perform(Operation<P...> operation, Rule rule, const Caller& caller,
                   const std::type_identity_t<P>&... arguments) {
        if (!isAllowed(rule, caller, 0, uidSaid(caller, arguments...))) {
            return reportOf(KSWErrorPermissionDenied);
        }
        return (this->*operation)(caller, arguments...);
    }

    // Settings.

    /// The user's settings; new ones for a user without.
    Report fetchSettings(const Caller& caller, const Uid& uid);
    /// Keeps them, one generation further: 0, or -94 when they are not of the generation that is kept.
    Report saveSettings(const Caller& caller, const SettingsPointer& settings, const Uid& uid);

    // A subsystem's switch for a user, which stands in his settings. Subsystems of any name have one.

    /// Whether somebody has switched it.
    Report haveEnablement(const Caller& caller, const std::optional<std::string>& subsystem, const Uid& uid);
    /// Whether it is on; -95 when nobody has switched it.
    Report enablement(const Caller& caller, const std::optional<std::string>& subsystem, const Uid& uid);
    Report setEnablement(const Caller& caller, const bool& isEnabled, const std::optional<std::string>& subsystem,
                         const Uid& uid);
    /// Forgets that somebody has switched it: 0, also when nobody has.
    Report resetEnablement(const Caller& caller, const std::optional<std::string>& subsystem, const Uid& uid);

    // Whether users are told of each item, however often they were told before.

    Report alwaysPosts(const Caller& caller);
    /// The flag says whether it is kept.
    Report setAlwaysPosts(const Caller& caller, const bool& posts);

    /// A subsystem's name, in bytes.
    static constexpr std::size_t kSubsystemMax = 256;

private:
    /// The uid that a request names, which is its last argument; the caller's own when it names none.
    template <class... A>
    static Uid uidSaid(const Caller& caller, const A&... arguments) {
        if constexpr (sizeof...(A) > 0) {
            const auto& last = std::get<sizeof...(A) - 1>(std::tie(arguments...));
            if constexpr (std::is_same_v<std::remove_cvref_t<decltype(last)>, Uid>) {
                return last;
            }
        }
        return caller.uid;
    }

    Registry& registry_;
};

}  // namespace ksw::daemon
