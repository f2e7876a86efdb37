#include <kestrelwood/ksw_version.h>

const char* ksw_version() {
    return KSW_VERSION;
}
