// notifications.h: the methods by which distributed notifications travel. A hub serves them under the name "notify"
// in its domain's run directory; an observing process keeps one connection to it.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <kestrelwood/values/notification.h>

#include "platform/base/result.h"
#include "platform/ipc/method.h"

namespace ksw::ipc {

inline constexpr std::string_view kNotifyService = "notify";

/// Wants notifications of this name, for as long as the connection lasts.
inline constexpr Method<Reply<>(std::optional<std::string>)> kObserveNotification{1, "observeNotification:reply:"};
/// The next notification that the connection has not been given; answered when there is one. One at a time.
inline constexpr Method<Reply<std::optional<std::string>, std::optional<Dictionary>>()> kNextNotification{
    2, "nextNotificationWithReply:", {}, Patience::Unbounded};
/// Posts a notification: the code is 0, or -97 for who may not.
inline constexpr Method<Reply<std::int64_t>(std::optional<std::string>, std::optional<Dictionary>)>
    kPostNotification{3, "postNotification:userInfo:reply:"};

/// The hub's refusal of a name beyond limits::kNotificationNamesMax.
inline constexpr std::int64_t kTooManyNamesCode = 100;

/// Makes one notification of two of a name when an observer has not taken the older one yet. It only computes: a
/// hub's runs under the hub's lock and must not use the hub. What it gives keeps the name; when it is too large for
/// a notification, the newer one stays.
using Coalesce = std::function<Notification(const Notification& older, const Notification& newer)>;

/// Whether the name may be a notification's: 1 to limits::kSelectorMax bytes. Error: LimitPassed.
Status checkNotificationName(std::string_view name);
/// The reply that brings a notification, a frame but for its header. Error: it has no name that may be one, or more
/// than limits::kNotificationMax bytes as a reply's body (LimitPassed), or something that has no form.
Result<Data> encodeNotification(const Notification& notification);

/// One of two, by `coalesce` or, without it, the newer.
Notification coalesced(const Coalesce& coalesce, const Notification& older, const Notification& newer);

}  // namespace ksw::ipc
