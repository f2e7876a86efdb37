// errors.h: what the agent answers when it cannot do what it is asked.
#pragma once

#include <cstdint>
#include <string_view>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/values/error.h>

namespace ksw::agentserver {

inline constexpr std::int64_t kWrongParameter = -50;
inline constexpr std::int64_t kNotConfigured = -4;

/// A request that makes no sense; `text` says why, for people.
inline Error wrongParameter(std::string_view text) {
    return Error(kStatusErrorDomain, kWrongParameter, text);
}

inline Error noSuchItem() {
    return KSWErrorWithCode(KSWErrorRecordNotFound);
}

}  // namespace ksw::agentserver
