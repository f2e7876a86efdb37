// answers.h: an operation's answer in the form of each method's reply.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <tuple>

#include <kestrelwood/KSWFetchResult.h>
#include <kestrelwood/KSWTypes.h>

#include "servers/kestrelwoodd/operations.h"

namespace ksw::daemon {

template <class Reply>
Reply replyOf(const Answer& answer) = delete;

/// A code alone.
template <>
inline std::tuple<std::int64_t> replyOf(const Answer& answer) {
    return {answer.code};
}

/// The item found, with its containers.
template <>
inline std::tuple<std::shared_ptr<KSWFetchResult>> replyOf(const Answer& answer) {
    return {KSWFetchResult::resultWithCode(answer.code, answer.item)};
}

/// Whether it may launch.
template <>
inline std::tuple<bool, std::int64_t> replyOf(const Answer& answer) {
    return {answer.code == 0 && KSWDispositionIsLaunchable(answer.disposition), answer.code};
}

/// The disposition.
template <>
inline std::tuple<std::int64_t, std::int64_t> replyOf(const Answer& answer) {
    return {static_cast<std::int64_t>(answer.disposition), answer.code};
}

/// The disposition and the launch constraint.
template <>
inline std::tuple<std::int64_t, std::optional<Data>, std::int64_t> replyOf(const Answer& answer) {
    return {static_cast<std::int64_t>(answer.disposition), answer.requirement, answer.code};
}

}  // namespace ksw::daemon
