/* Asks for the state of a subsystem, and says how that went. */
#include <kestrelwood/ksw_subsystem.h>
#include <stdio.h>

int main(void) {
    bool isEnabled = false;
    int code = ksw_get_enablement_status_for_subsystem_and_uid(ksw_subsystem_glimpse, 1000, &isEnabled);
    printf("%s: %d\n", ksw_subsystem_glimpse, code);
    return 0;
}
