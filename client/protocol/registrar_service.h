// registrar_service.h: the 3 methods of the service "com.velmont.kestrelwood.registrar".
#pragma once

#include "client/protocol/manager_service.h"

namespace ksw::protocol::registrar {

// Each is the manager's method of the same name, under a number of its own.
inline constexpr auto kRegisterItemOfURL = manager::kRegisterItemOfURL.renumbered(1);
inline constexpr auto kEffectiveDispositionOfURL = manager::kEffectiveDispositionOfURL.renumbered(2);
inline constexpr auto kItemOfURL = manager::kItemOfURL.renumbered(3);

/// The interface `KSWRegistrarServiceInterface`.
ipc::ServiceInterface serviceInterface();

}  // namespace ksw::protocol::registrar
