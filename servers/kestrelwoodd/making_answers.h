// making_answers.h: answers from what the records gave.
#pragma once

#include <utility>

#include <kestrelwood/KSWErrors.h>

#include "servers/kestrelwoodd/operations.h"

namespace ksw::daemon {

/// How far a caller's changes may go.
inline Reach reachOf(const Caller& caller) {
    return caller.isAdministrator() ? Reach::System : Reach::Own;
}

inline Answer failure(std::int64_t code) {
    Answer answer;
    answer.code = code;
    return answer;
}

inline Answer answerOf(Outcome outcome) {
    Answer answer = failure(outcome.code);
    answer.item = std::move(outcome.item);
    answer.changes = std::move(outcome.changes);
    answer.replaced = std::move(outcome.replaced);
    return answer;
}

inline Answer answerOf(Found found) {
    if (found.item == nullptr) {
        return failure(found.isDamaged ? KSWErrorGeneric : KSWErrorRecordNotFound);
    }
    Answer answer;
    answer.item = std::move(found.item);
    return answer;
}

}  // namespace ksw::daemon
