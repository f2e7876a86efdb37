// sys.h: every system call that the library makes, each wrapped once.
#pragma once

#include "platform/host/sys_call.h"
#include "platform/host/sys_events.h"
#include "platform/host/sys_files.h"
#include "platform/host/sys_lookup.h"
#include "platform/host/sys_replace.h"
#include "platform/host/sys_sockets.h"
#include "platform/host/sys_threads.h"
