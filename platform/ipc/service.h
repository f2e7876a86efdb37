// service.h: opens connections to services for the classes that hand them out, and looks inside such a handle.
#pragma once

#include <memory>
#include <string_view>

#include <kestrelwood/service_connection.h>

#include "platform/ipc/connection.h"

namespace ksw::ipc {

/// What every server of this layer answers besides its own methods: its counters.
inline constexpr Method<Reply<std::optional<Dictionary>>()> kServerStatus{0, "serverStatusWithReply:"};

/// A connection to the service `name`; nothing is dialled before its first request.
std::unique_ptr<ServiceConnection> openService(std::string_view name, const ConnectionOptions& options,
                                               ServiceInterface interface);

/// The connection behind a handle, owned by it; null for null.
Connection* connectionOf(ServiceConnection* handle);

}  // namespace ksw::ipc
