// notification_methods.h: the methods of the notification service of a user, each with its rule and its operation.
#pragma once

#include <tuple>

#include "client/protocol/notification_service.h"
#include "servers/kestrelwoodd/notices.h"
#include "servers/kestrelwoodd/served_methods.h"

namespace ksw::daemon {

inline constexpr std::tuple kNotificationMethods{
    ServedMethod{protocol::notifications::kPostAdvisoryForContainer, Rule::Tell, &Notices::adviseOfContainer},
    ServedMethod{protocol::notifications::kPostAdvisoryForItem, Rule::Tell, &Notices::adviseOfItem},
    ServedMethod{protocol::notifications::kPostAdvisoryForItemOfApp, Rule::Tell, &Notices::adviseOfItemOfApp},
    ServedMethod{protocol::notifications::kPostAlertForItem, Rule::Tell, &Notices::alertOfItem},
    ServedMethod{protocol::notifications::kPostCoalescedNotification, Rule::Tell, &Notices::adviseOfMany},
    ServedMethod{protocol::notifications::kRegisterParentApps, Rule::Tell, &Notices::registerParentApps},
};

}  // namespace ksw::daemon
