#include "platform/host/log.h"

#include <cerrno>

#include "platform/host/activity.h"
#include "platform/host/log_sinks.h"

namespace ksw::host {

void Log::emitArguments(LogLevel level, std::string_view text,
                        std::span<const TextArgument> arguments) const noexcept {
    const int errnoBefore = errno;
    try {
        const Activity activity = currentActivity();
        routeLogLine({level, std::string(category_), std::string(text),
                      formatText(text, arguments, Disclosure::Public), formatText(text, arguments),
                      std::string(activity.name), activity.id});
    } catch (...) {
        // Memory has run out, or an argument threw while it described itself: the line is lost, the caller goes on.
    }
    errno = errnoBefore;
}

}  // namespace ksw::host
