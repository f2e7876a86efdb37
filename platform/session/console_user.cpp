// console_user.cpp: who sits at the machine.

#include <kestrelwood/KSWFunctions.h>

#include "platform/host/file_rights.h"
#include "platform/host/host_root.h"
#include "platform/host/sys.h"

ksw::Uid ConsoleUserUID() {
    const ksw::host::OwnRights own;
    const auto facts = ksw::host::sys::statx(ksw::host::hostPath("/dev/console"), 0, STATX_UID);
    return facts ? facts->stx_uid : 0;
}
