// export.h: marks what the shared library exports; all else is hidden.
#pragma once

#if defined(__GNUC__)
#define KSW_EXPORT __attribute__((visibility("default")))
#else
#define KSW_EXPORT
#endif
