// ksw_subsystem.h: whether parts of the system are switched on, for programs in C and C++.
//
// The management daemon keeps the switches. `subsystem` is text in UTF-8, one of those below or any other; `uid` is
// the user concerned, 4294967294 for the system as a whole. Every function asks the daemon and waits for its
// answer; any thread may call any of them. Failures are logged.
#pragma once

#include <stdbool.h>
#include <stdint.h>

#include <kestrelwood/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The scheduler of periodic jobs, which is switched for the system as a whole: "KSWSubsystemCron".
KSW_EXPORT extern const char* const ksw_subsystem_cron;
/// The extensions that preview files, which each user switches: "KSWSubsystemGlimpse".
KSW_EXPORT extern const char* const ksw_subsystem_glimpse;

/// Whether a status has been stored. 0, and `*have` is written; else a code of the daemon, or -1 when it cannot be
/// reached, and `*have` is left as it was. `have` must not be null.
KSW_EXPORT int ksw_have_enablement_status_for_subsystem_and_uid(const char* subsystem, uint32_t uid, bool* have);

/// The status that is stored. The result is as above.
KSW_EXPORT int ksw_get_enablement_status_for_subsystem_and_uid(const char* subsystem, uint32_t uid, bool* enabled);

/// Stores the status. 0 for success, and also when the daemon cannot be reached; else a code of the daemon.
KSW_EXPORT int ksw_set_enablement_status_for_subsystem_and_uid(const char* subsystem, uint32_t uid, bool enabled);

/// Removes the stored status. Unlike the others: 1 for success and 0 for failure.
KSW_EXPORT int ksw_reset_enablement_status_for_subsystem_and_uid(const char* subsystem, uint32_t uid);

#ifdef __cplusplus
}
#endif
