#include "servers/common/notifier.h"

#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <cstring>

#include "platform/host/sys_sockets.h"

namespace ksw::servers {

namespace {

std::string takeVariable(const char* name) {
    const char* value = secure_getenv(name);
    std::string text = value == nullptr ? "" : value;
    unsetenv(name);
    return text;
}

std::optional<std::int64_t> numberOf(const std::string& text) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = error == std::errc() && end == text.data() + text.size();
    return isNumber ? std::optional(number) : std::nullopt;
}

/// Half of the time after which the service would count as hung.
std::optional<std::chrono::milliseconds> intervalOf(const std::string& microseconds, const std::string& pid) {
    const std::optional<std::int64_t> limit = numberOf(microseconds);
    const bool isForAnother = !pid.empty() && numberOf(pid) != std::int64_t{getpid()};
    if (!limit || *limit <= 0 || isForAnother) {
        return std::nullopt;
    }
    return std::max(std::chrono::milliseconds(1),
                    std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::microseconds(*limit / 2)));
}

}  // namespace

Notifier Notifier::fromEnvironment() {
    std::string address = takeVariable("NOTIFY_SOCKET");
    const std::string limit = takeVariable("WATCHDOG_USEC");
    const std::string pid = takeVariable("WATCHDOG_PID");
    return Notifier(std::move(address), intervalOf(limit, pid));
}

void Notifier::send(std::string_view state) const {
    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    if (address_.size() < 2 || address_.size() >= sizeof place.sun_path ||
        (address_.front() != '/' && address_.front() != '@')) {
        return;
    }
    std::memcpy(place.sun_path, address_.data(), address_.size());
    if (address_.front() == '@') {
        place.sun_path[0] = '\0';
    }
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address_.size());
    const Result<UniqueFd> socket = host::sys::socket(AF_UNIX, SOCK_DGRAM);
    if (socket.ok()) {
        static_cast<void>(host::sys::retried(host::sys::Call::Send, [&](std::size_t) {
            return ::sendto(socket->get(), state.data(), state.size(), MSG_NOSIGNAL,
                            reinterpret_cast<const sockaddr*>(&place), size);
        }));
    }
}

}  // namespace ksw::servers
