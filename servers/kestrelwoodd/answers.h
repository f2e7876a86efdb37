// answers.h: an operation's answer in the form of each method's reply.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWFetchResult.h>
#include <kestrelwood/KSWTypes.h>

#include "client/values/fetch_result_archive.h"
#include "platform/ipc/responder.h"
#include "platform/ipc/wire_objects.h"
#include "servers/kestrelwoodd/operations.h"

namespace ksw::daemon {

/// The error of a failed operation; absent for one that succeeded.
inline std::optional<Error> errorOf(const Answer& answer) {
    return answer.code == KSWErrorNone ? std::nullopt : std::optional(KSWErrorWithCode(answer.code));
}

/// A code alone.
inline void reply(ipc::Responder<std::int64_t>& responder, const Answer& answer) {
    responder.answer(answer.code);
}

/// The item found, with its containers and as much of its family as the answer says.
inline void reply(ipc::Responder<std::shared_ptr<KSWFetchResult>>& responder, const Answer& answer) {
    const bool isPart = answer.family == Family::Deciding && answer.item != nullptr;
    responder.answer(
        KSWFetchResult::resultWithCode(answer.code, isPart ? withDecidingFamily(answer.item) : answer.item));
}

/// Whether it may launch.
inline void reply(ipc::Responder<bool, std::int64_t>& responder, const Answer& answer) {
    responder.answer(answer.code == 0 && KSWDispositionIsLaunchable(answer.disposition), answer.code);
}

/// The disposition.
inline void reply(ipc::Responder<std::int64_t, std::int64_t>& responder, const Answer& answer) {
    responder.answer(static_cast<std::int64_t>(answer.disposition), answer.code);
}

/// The disposition and the launch constraint.
inline void reply(ipc::Responder<std::int64_t, std::optional<Data>, std::int64_t>& responder,
                  const Answer& answer) {
    responder.answer(static_cast<std::int64_t>(answer.disposition), answer.requirement, answer.code);
}

/// The list, or why there is none.
inline void reply(ipc::Responder<std::optional<Data>, std::optional<Error>>& responder, const Answer& answer) {
    static constexpr std::optional<Data> kNone;
    responder.answer(answer.list == nullptr ? kNone : *answer.list, errorOf(answer));
}

/// Nothing, or what went wrong.
inline void reply(ipc::Responder<std::optional<Error>>& responder, const Answer& answer) {
    responder.answer(errorOf(answer));
}

/// The users.
inline void reply(ipc::Responder<std::optional<Dictionary>>& responder, const Answer& answer) {
    responder.answer(answer.users);
}

}  // namespace ksw::daemon
