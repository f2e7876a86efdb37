// KSWErrors.h: the result codes of the management daemon and the errors made of them. All functions: any thread.
#pragma once

#include <cstdint>
#include <string>

#include <kestrelwood/export.h>
#include <kestrelwood/values/error.h>
#include <kestrelwood/values/string_constant.h>

/// The domain of errors whose code is one of the daemon's result codes.
inline constexpr ksw::StringConstant KSWErrorDomain = "KSWErrorDomain";

// Result codes. Part of the wire contract.
inline constexpr std::int64_t KSWErrorNone = 0;
inline constexpr std::int64_t KSWErrorGeneric = -1;
inline constexpr std::int64_t KSWErrorBookmarkInTrash = -99;
inline constexpr std::int64_t KSWErrorInvalidParameter = -98;
inline constexpr std::int64_t KSWErrorPermissionDenied = -97;
/// For an add this is success: the record was there already.
inline constexpr std::int64_t KSWErrorRecordExists = -96;
inline constexpr std::int64_t KSWErrorRecordNotFound = -95;
inline constexpr std::int64_t KSWErrorInvalidGeneration = -94;
/// For an update this, and not 0, is success.
inline constexpr std::int64_t KSWErrorRecordUpdated = -93;
inline constexpr std::int64_t KSWErrorTargetNotSandboxed = -92;

/// The text of a result code; "unknown error (N)" for a number that is none.
KSW_EXPORT std::string KSWErrorString(std::int64_t code);

/// An error of `KSWErrorDomain` with this code, whose only user information is its text. An error for every code,
/// 0 included.
KSW_EXPORT ksw::Error KSWErrorWithCode(std::int64_t code);
