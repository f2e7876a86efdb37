// agent_service.h: the 8 methods of the service "com.velmont.kestrelwoodagent", and what their errors may carry.
#pragma once

#include <array>

#include <kestrelwood/KSWBackgroundItem.h>
#include <kestrelwood/KSWLoginItem.h>

#include "agent/values/background_item_archive.h"
#include "agent/values/login_item_archive.h"
#include "client/protocol/wire_arguments.h"
#include "platform/ipc/interface.h"
#include "platform/ipc/method.h"
#include "platform/ipc/wire_objects.h"

namespace ksw::protocol::agent {

using ipc::Method;
using ipc::Patience;
using ipc::Reply;
using ipc::ReplyClasses;
using LoginItemPointer = std::shared_ptr<KSWLoginItem>;
using LoginItems = std::optional<std::vector<LoginItemPointer>>;
using BackgroundItems = std::optional<std::vector<std::shared_ptr<KSWBackgroundItem>>>;

/// What an error of the agent may carry in its user information.
inline constexpr std::array<std::string_view, 5> kErrorSet{"error", "dictionary", "array", "string", "value"};
inline constexpr std::array<std::string_view, 2> kLoginItemSet{"array", "KSWLoginItem"};
inline constexpr std::array<std::string_view, 2> kBackgroundItemSet{"array", "KSWBackgroundItem"};

inline constexpr std::array<ReplyClasses, 1> kErrorAlone{ReplyClasses{0, kErrorSet}};
inline constexpr std::array<ReplyClasses, 2> kLoginItemsAndError{ReplyClasses{0, kLoginItemSet},
                                                                 ReplyClasses{1, kErrorSet}};
inline constexpr std::array<ReplyClasses, 2> kBackgroundItemsAndError{ReplyClasses{0, kBackgroundItemSet},
                                                                      ReplyClasses{1, kErrorSet}};

/// The mask is unsigned here, unlike the management daemon's.
inline constexpr Method<Reply<LoginItems, MaybeError>(std::uint64_t)> kGetLoginItems{
    1, "getLoginItemsWithTypeMask:reply:", kLoginItemsAndError};
inline constexpr Method<Reply<MaybeError>(LoginItemPointer)> kAddLoginItem{2, "addLoginItem:reply:", kErrorAlone};
inline constexpr Method<Reply<MaybeError>(LoginItemPointer)> kRemoveLoginItem{
    3, "removeLoginItem:reply:", kErrorAlone};
inline constexpr Method<Reply<BackgroundItems, MaybeError>()> kGetBackgroundItems{
    4, "getBackgroundItemsWithReply:", kBackgroundItemsAndError};
inline constexpr Method<Reply<MaybeError>(std::int64_t, MaybeURL)> kSetElectionForURL{
    5, "setUserElection:forURL:reply:"};
inline constexpr Method<Reply<MaybeError>(std::int64_t, MaybeUUID)> kSetElectionForIdentifier{
    6, "setUserElection:forBackgroundItemIdentifier:reply:", kErrorAlone};
inline constexpr Method<Reply<MaybeError>()> kOpenLoginItems{7, "openLoginItemsWithReply:", kErrorAlone};
inline constexpr Method<Reply<MaybeError>(bool)> kImportRosterLoginItems{
    8, "importRosterLoginItemsAndDeleteWhenDone:reply:", {}, Patience::Long};

}  // namespace ksw::protocol::agent

/// The interface `KSWManagerServiceProtocol` with its allow-lists. A new one on every call.
ksw::ipc::ServiceInterface __ksw_serviceInterface();
