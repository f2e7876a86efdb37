// hub_watch.h: tells when it is worth while to look for a hub again.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "platform/base/unique_fd.h"

namespace ksw::ipc {

/// Waits for a socket to come to its place. It watches the socket's folder, or the nearest above it that exists,
/// and goes by the clock only where that cannot tell: a socket is there and refuses (it may listen later), or the
/// kernel denies the watching. One thread.
class HubWatch {
public:
    /// How long until a look that goes by the clock: the first is at once, the second after the least, and so on,
    /// doubling, to the longest.
    static constexpr std::chrono::milliseconds kDelayMin{100};
    static constexpr std::chrono::milliseconds kDelayMax{10'000};

    /// An attempt to reach the hub has failed, or the hub has gone: watches the place from now on, until `end`.
    void begin(const std::string& socketPath);
    /// The hub has been reached: nothing is watched, no clock runs.
    void end();

    /// Blocks until another attempt is worth while (true; `begin` or `end` comes next), or `wakeFd` is readable.
    bool await(int wakeFd);

private:
    using Clock = std::chrono::steady_clock;
    struct Watched {
        int number = -1;
        std::string name;  // what is waited for in the folder
    };

    void watch();
    std::optional<std::string> watchNearest();
    void watchAbove(const std::string& folder);
    bool takeChanges();
    bool concerns(int number, std::string_view name) const;
    void setClock();

    std::string path_;
    UniqueFd events_;  // none: the kernel denies it, or nothing is waited for
    Watched nearest_;
    Watched above_;  // the nearest folder's own place: its removal goes unseen below while somebody has it open
    std::chrono::milliseconds delay_{0};
    std::optional<Clock::time_point> lookAt_;
    std::optional<Clock::time_point> reachedAt_;
};

}  // namespace ksw::ipc
