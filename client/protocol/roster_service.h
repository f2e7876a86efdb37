// roster_service.h: the 4 methods of the service "com.velmont.kestrelwood.roster", the legacy login-item store.
#pragma once

#include "client/protocol/wire_arguments.h"
#include "model/item/item_archive.h"
#include "platform/ipc/interface.h"
#include "platform/ipc/method.h"
#include "platform/ipc/wire_objects.h"

namespace ksw::protocol::roster {

using ipc::Method;
using ipc::Reply;

inline constexpr Method<Reply<MaybeData, MaybeError>(Type)> kFetchRosterItemsMatching{
    1, "fetchRosterItemsMatching:reply:"};
/// URL, type, global, managed.
inline constexpr Method<Reply<Code, ItemPointer>(MaybeURL, Type, bool, bool)> kAddURL{
    2, "addURL:type:global:managed:reply:"};
inline constexpr Method<Reply<Code>(ItemPointer)> kUpdateItem{3, "updateItem:reply:"};
inline constexpr Method<Reply<Code>(ItemPointer)> kRemoveItem{4, "removeItem:reply:"};

/// The interface `KSWRosterInterface`.
ipc::ServiceInterface serviceInterface();

}  // namespace ksw::protocol::roster
