// notification_service.h: the 6 methods of the service "com.velmont.kestrelwood.notifications".
#pragma once

#include "client/protocol/wire_arguments.h"
#include "model/item/item_archive.h"
#include "platform/ipc/interface.h"
#include "platform/ipc/method.h"
#include "platform/ipc/wire_objects.h"

namespace ksw::protocol::notifications {

using ipc::Method;
using ipc::Reply;

inline constexpr Method<Reply<bool>(ItemPointer)> kPostAdvisoryForContainer{1, "postAdvisoryForContainer:reply:"};
inline constexpr Method<Reply<bool>(ItemPointer, ItemPointer)> kPostAdvisoryForItem{
    2, "postAdvisoryForItem:container:reply:"};
inline constexpr Method<Reply<bool>(ItemPointer, MaybeURL)> kPostAdvisoryForItemOfApp{
    3, "postAdvisoryForItem:appURL:reply:"};
inline constexpr Method<Reply<bool>(ItemPointer, ItemPointer)> kPostAlertForItem{
    4, "postAlertForItem:container:reply:"};
/// Item, container, how many background items and extensions there are, mask of their types.
inline constexpr Method<Reply<bool>(ItemPointer, ItemPointer, std::int64_t, std::int64_t, Type)>
    kPostCoalescedNotification{
        5, "postCoalescedNotificationForItem:container:backgroundCount:extensionsCount:types:reply:"};
inline constexpr Method<Reply<bool>(MaybeString)> kRegisterParentApps{6, "registerParentApps:reply:"};

/// The interface `KSWNotificationServiceInterface`.
ipc::ServiceInterface serviceInterface();

}  // namespace ksw::protocol::notifications
