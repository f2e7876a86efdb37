/* What a program in C meets: the header, the names, and what each function answers on a host without a daemon. */
#include <kestrelwood/ksw_subsystem.h>
#include <kestrelwood/ksw_version.h>
#include <stdio.h>
#include <string.h>

static int failures = 0;

static void expect(int holds, const char* what) {
    if (!holds) {
        fprintf(stderr, "does not hold: %s\n", what);
        ++failures;
    }
}

int main(void) {
    int part = 0;
    bool answer = true;
    const uint32_t every_user = 4294967294U;
    expect(strcmp(ksw_subsystem_cron, "KSWSubsystemCron") == 0, "the name of cron");
    expect(strcmp(ksw_subsystem_glimpse, "KSWSubsystemGlimpse") == 0, "the name of glimpse");
    expect(ksw_have_enablement_status_for_subsystem_and_uid(ksw_subsystem_cron, every_user, &answer) == -1,
           "have: -1");
    expect(ksw_get_enablement_status_for_subsystem_and_uid(ksw_subsystem_cron, every_user, &answer) == -1,
           "get: -1");
    expect(answer, "the answer is as it was");
    expect(ksw_set_enablement_status_for_subsystem_and_uid(ksw_subsystem_glimpse, 501, true) == 0, "set: 0");
    expect(ksw_reset_enablement_status_for_subsystem_and_uid("another", 501) == 0, "reset: 0");
    expect(sscanf(ksw_version(), "%d.%d.%d", &part, &part, &part) == 3, "a version of three numbers");
    return failures == 0 ? 0 : 1;
}
