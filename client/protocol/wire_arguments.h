// wire_arguments.h: what the methods' arguments and replies are called in the tables of the contract.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <kestrelwood/KSWItem.h>
#include <kestrelwood/values.h>

namespace ksw::protocol {

// Values that a caller may leave out travel as null.
using MaybeURL = std::optional<URL>;
using MaybeString = std::optional<std::string>;
using MaybeUUID = std::optional<UUID>;
using MaybeDictionary = std::optional<Dictionary>;
using MaybeData = std::optional<Data>;
using MaybeError = std::optional<Error>;
using MaybeToken = std::optional<AuditToken>;
using ItemPointer = std::shared_ptr<KSWItem>;

/// A result code of KSWErrors.h.
using Code = std::int64_t;
/// An item type or a mask of them, as the management daemon takes it.
using Type = std::int64_t;
using Disposition = std::int64_t;

/// An administrator's consent, serialised (platform/ipc/authorization.h).
using Authorization = std::optional<Data>;

}  // namespace ksw::protocol
