#include <kestrelwood/KSWErrors.h>

#include "servers/kestrelwoodd/housekeeping.h"

namespace ksw::daemon {

namespace {

bool isSubsystem(const std::optional<std::string>& subsystem) {
    return subsystem && !subsystem->empty() && subsystem->size() <= Housekeeping::kSubsystemMax;
}

}  // namespace

Report Housekeeping::fetchSettings(const Caller& /*caller*/, const Uid& uid) {
    if (uid == kNoUser) {
        return reportOf(KSWErrorInvalidParameter);
    }
    Report report;
    report.settings = registry_.settings().of(uid);
    return report;
}

Report Housekeeping::saveSettings(const Caller& /*caller*/, const SettingsPointer& settings, const Uid& uid) {
    const bool isUsable = settings != nullptr && uid != kNoUser;
    return reportOf(isUsable ? registry_.saveSettings(uid, *settings) : KSWErrorInvalidParameter);
}

Report Housekeeping::haveEnablement(const Caller& /*caller*/, const std::optional<std::string>& subsystem,
                                    const Uid& uid) {
    Report report = reportOf(isSubsystem(subsystem) && uid != kNoUser ? KSWErrorNone : KSWErrorInvalidParameter);
    report.flag = report.code == KSWErrorNone && registry_.settings().enablement(uid, *subsystem).has_value();
    return report;
}

Report Housekeeping::enablement(const Caller& /*caller*/, const std::optional<std::string>& subsystem,
                                const Uid& uid) {
    if (!isSubsystem(subsystem) || uid == kNoUser) {
        return reportOf(KSWErrorInvalidParameter);
    }
    const std::optional<bool> isEnabled = registry_.settings().enablement(uid, *subsystem);
    Report report = reportOf(isEnabled ? KSWErrorNone : KSWErrorRecordNotFound);
    report.flag = isEnabled.value_or(false);
    return report;
}

Report Housekeeping::setEnablement(const Caller& /*caller*/, const bool& isEnabled,
                                   const std::optional<std::string>& subsystem, const Uid& uid) {
    const bool isUsable = isSubsystem(subsystem) && uid != kNoUser;
    return reportOf(isUsable ? registry_.setEnablement(uid, *subsystem, isEnabled) : KSWErrorInvalidParameter);
}

Report Housekeeping::resetEnablement(const Caller& /*caller*/, const std::optional<std::string>& subsystem,
                                     const Uid& uid) {
    const bool isUsable = isSubsystem(subsystem) && uid != kNoUser;
    return reportOf(isUsable ? registry_.setEnablement(uid, *subsystem, std::nullopt) : KSWErrorInvalidParameter);
}

Report Housekeeping::alwaysPosts(const Caller& /*caller*/) {
    Report report;
    report.flag = registry_.settings().alwaysPosts();
    return report;
}

Report Housekeeping::setAlwaysPosts(const Caller& /*caller*/, const bool& posts) {
    Report report = reportOf(registry_.setAlwaysPosts(posts));
    report.flag = report.code == KSWErrorNone;
    return report;
}

}  // namespace ksw::daemon
