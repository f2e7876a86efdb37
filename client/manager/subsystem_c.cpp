// subsystem_c.cpp: the switches for programs in C.

#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/ksw_subsystem.h>

namespace {

/// As the other functions take it. What is no text is sent as none, and the daemon decides.
std::optional<std::string> textOf(const char* text) {
    return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

}  // namespace

const char* const ksw_subsystem_cron = "KSWSubsystemCron";
const char* const ksw_subsystem_glimpse = "KSWSubsystemGlimpse";

int ksw_have_enablement_status_for_subsystem_and_uid(const char* subsystem, uint32_t uid, bool* have) {
    return static_cast<int>(KSWHaveEnablementStatusForSubsystemAndUID(textOf(subsystem), uid, have));
}

int ksw_get_enablement_status_for_subsystem_and_uid(const char* subsystem, uint32_t uid, bool* enabled) {
    return static_cast<int>(KSWGetEnablementStatusForSubsystemAndUID(textOf(subsystem), uid, enabled));
}

int ksw_set_enablement_status_for_subsystem_and_uid(const char* subsystem, uint32_t uid, bool enabled) {
    return static_cast<int>(KSWSetEnablementStatusForSubsystemAndUID(textOf(subsystem), uid, enabled));
}

int ksw_reset_enablement_status_for_subsystem_and_uid(const char* subsystem, uint32_t uid) {
    return KSWResetEnablementStatusForSubsystemAndUID(textOf(subsystem), uid) ? 1 : 0;
}
