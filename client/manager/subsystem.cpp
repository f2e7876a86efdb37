// subsystem.cpp: the switches of other parts of the system.

#include <unistd.h>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWManager.h>

#include "client/manager/request_frame.h"
#include "client/protocol/manager_service.h"
#include "platform/facts/localized_text.h"
#include "platform/host/log.h"
#include "platform/ipc/service.h"

using ksw::Error;
using ksw::Literal;
using ksw::Uid;
using ksw::client::Requester;
using ksw::client::sendRequest;
using ksw::host::mainLog;
namespace methods = ksw::protocol::manager;

namespace {

using Subsystem = std::optional<std::string>;

/// A function as the log knows it, and the callback in it that the reply runs.
struct Function {
    Literal name;
    Literal reply;
};

constexpr Function kHave{{"KSWHaveEnablementStatusForSubsystemAndUID"},
                         {"KSWHaveEnablementStatusForSubsystemAndUID_reply"}};
constexpr Function kGet{{"KSWGetEnablementStatusForSubsystemAndUID"},
                        {"KSWGetEnablementStatusForSubsystemAndUID_reply"}};
constexpr Function kSet{{"KSWSetEnablementStatusForSubsystemAndUID"},
                        {"KSWSetEnablementStatusForSubsystemAndUID_reply"}};
constexpr Function kReset{{"KSWResetEnablementStatusForSubsystemAndUID"},
                          {"KSWResetEnablementStatusForSubsystemAndUID_reply"}};

void logEntered(const Function& function) {
    mainLog.debug("%s: entered", function.name);
}

void logServiceError(Literal name, std::int64_t code) {
    mainLog.error("%s: service error: %@ (%ld)", name, KSWErrorString(code), code);
}

void logThatTheDaemonKnowsMore(const Function& function, const Error& failure) {
    mainLog.error("%s: connection failed, check logs from kestrelwoodd for details. Error: %{public}@",
                  function.reply, failure);
}

/// The shared manager's connection; a failure of it that is logged as usual is logged in the callback's name.
Requester requesterOf(const Function& function) {
    return {ksw::ipc::connectionOf(KSWManager::shared().connection()), function.reply.text};
}

/// Asks for a switch: the code, and on 0 the answer in `*out`.
template <class Method, class LogFailure>
std::int64_t ask(const Function& function, const Method& method, const Subsystem& subsystem, Uid uid, bool* out,
                 const LogFailure& logFailure) {
    logEntered(function);
    std::int64_t code = KSWErrorNone;
    bool value = false;
    sendRequest(
        requesterOf(function), method,
        [&](const Error& failure) {
            code = KSWErrorGeneric;
            logFailure(failure);
        },
        [&](std::int64_t answerCode, bool answer) {
            code = answerCode;
            value = answer;
        },
        subsystem, uid);
    if (code != KSWErrorNone) {
        logServiceError(function.name, code);
        return code;
    }
    *out = value;
    return code;
}

}  // namespace

std::int64_t KSWHaveEnablementStatusForSubsystemAndUID(const Subsystem& subsystem, Uid uid, bool* have) {
    return ask(kHave, methods::kGetHaveEnablementStatus, subsystem, uid, have,
               [](const Error& failure) { logThatTheDaemonKnowsMore(kHave, failure); });
}

std::int64_t KSWGetEnablementStatusForSubsystemAndUID(const Subsystem& subsystem, Uid uid, bool* enabled) {
    return ask(kGet, methods::kGetEnablementStatus, subsystem, uid, enabled,
               [](const Error& failure) { requesterOf(kGet).logConnectionFailure(failure); });
}

bool KSWGetEnablementStatusForSubsystem(const Subsystem& subsystem) {
    bool enabled = false;
    KSWGetEnablementStatusForSubsystemAndUID(subsystem, UIDForSubsystem(subsystem), &enabled);
    return enabled;
}

std::int64_t KSWSetEnablementStatusForSubsystemAndUID(const Subsystem& subsystem, Uid uid, bool enabled) {
    logEntered(kSet);
    // Stays 0 when the connection fails: whoever sets a switch without a daemon is not held up by that.
    std::int64_t code = KSWErrorNone;
    sendRequest(
        requesterOf(kSet), methods::kSetEnablementStatus,
        [](const Error& failure) { logThatTheDaemonKnowsMore(kSet, failure); },
        [&](std::int64_t answer) { code = answer; }, enabled, subsystem, uid);
    if (code != KSWErrorNone) {
        logServiceError(kSet.name, code);
    }
    return code;
}

void KSWSetEnablementStatusForSubsystem(const Subsystem& subsystem, bool enabled) {
    KSWSetEnablementStatusForSubsystemAndUID(subsystem, UIDForSubsystem(subsystem), enabled);
}

bool KSWResetEnablementStatusForSubsystemAndUID(const Subsystem& subsystem, Uid uid) {
    logEntered(kReset);
    bool success = false;
    sendRequest(
        requesterOf(kReset), methods::kResetEnablementStatus,
        [](const Error& failure) { logThatTheDaemonKnowsMore(kReset, failure); },
        [&](std::int64_t code) {
            success = code == KSWErrorNone;
            if (!success) {
                logServiceError(kReset.reply, code);
            }
        },
        subsystem, uid);
    return success;
}

Uid UIDForSubsystem(const Subsystem& subsystem) {
    if (subsystem == KSWSubsystemCron) {
        return ksw::kEveryUser;
    }
    return subsystem == KSWSubsystemGlimpse ? ::getuid() : ksw::kNoUser;
}

std::string KSWLocalizedNameForSubsystem(const Subsystem& subsystem) {
    const std::string_view key = subsystem == KSWSubsystemCron      ? "KSW_SUBSYSTEM_CRON"
                                 : subsystem == KSWSubsystemGlimpse ? "KSW_SUBSYSTEM_GLIMPSE"
                                                                    : "KSW_SUBSYSTEM_UNKNOWN";
    return ksw::facts::localizedText(key, "Localizable");
}
