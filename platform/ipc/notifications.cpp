#include "platform/ipc/notifications.h"

#include "platform/base/limits.h"
#include "platform/base/text.h"
#include "platform/ipc/body.h"
#include "platform/ipc/frame.h"

namespace ksw::ipc {

Status checkNotificationName(std::string_view name) {
    if (name.empty() || name.size() > limits::kSelectorMax) {
        return Error(FormatError::LimitPassed, format("a notification's name has 1 to %ld bytes, not %ld",
                                                      limits::kSelectorMax, name.size()));
    }
    return {};
}

Result<Data> encodeNotification(const Notification& notification) {
    if (Status status = checkNotificationName(notification.name); !status) {
        return status.error();
    }
    const std::optional<std::string> name = notification.name;
    const ArgumentSource told[] = {sourceOf(name), sourceOf(notification.userInfo)};
    Data frame;
    if (Status status = encodeReply(told, frame); !status) {
        return status.error();
    }
    if (const std::size_t size = frame.size() - kHeaderSize; size > limits::kNotificationMax) {
        return Error(FormatError::LimitPassed,
                     format("a notification has at most %ld bytes, not %ld", limits::kNotificationMax, size));
    }
    return frame;
}

Notification coalesced(const Coalesce& coalesce, const Notification& older, const Notification& newer) {
    if (coalesce == nullptr) {
        return newer;
    }
    Notification one = coalesce(older, newer);
    one.name = newer.name;
    return encodeNotification(one) ? one : newer;
}

}  // namespace ksw::ipc
