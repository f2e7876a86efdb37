// notifier.h: tells the service manager how the service fares, by its notification protocol.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace ksw::servers {

/// Sends states to the socket that the environment names; without one it does nothing. A state that cannot be
/// sent is dropped: a service works without being watched. Any thread.
class Notifier {
public:
    /// Reads NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID, and takes them out of the environment, so that no
    /// child speaks in this process's name. Before any thread exists.
    static Notifier fromEnvironment();

    void ready() const { send("READY=1"); }
    void stopping() const { send("STOPPING=1"); }
    void alive() const { send("WATCHDOG=1"); }

    /// How often the service manager wants to hear that the service is alive, at most this far apart; absent when
    /// it does not watch.
    std::optional<std::chrono::milliseconds> watchdogInterval() const { return watchdogInterval_; }

private:
    Notifier(std::string address, std::optional<std::chrono::milliseconds> watchdogInterval)
        : address_(std::move(address)), watchdogInterval_(watchdogInterval) {}
    void send(std::string_view state) const;

    std::string address_;  ///< A path, or a name that begins with "@" in the abstract namespace.
    std::optional<std::chrono::milliseconds> watchdogInterval_;
};

}  // namespace ksw::servers
