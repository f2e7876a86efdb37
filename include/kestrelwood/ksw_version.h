// ksw_version.h: which version of the library a program runs with, for programs in C and C++.
#pragma once

#include <kestrelwood/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The library's version, "0.1.0": what is loaded, which may be another than the program was built against. Text
/// that lives as long as the library is loaded; never null. Any thread.
KSW_EXPORT const char* ksw_version(void);

#ifdef __cplusplus
}
#endif
