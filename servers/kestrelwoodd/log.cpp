#include "servers/kestrelwoodd/log.h"

#include "platform/host/log.h"

namespace ksw::daemon {

namespace {

constexpr host::Log kLog{"daemon"};

}  // namespace

void logError(std::string_view what) {
    kLog.error("kestrelwoodd: %{public}@", what);
}

void logNotice(std::string_view what) {
    kLog.notice("kestrelwoodd: %{public}@", what);
}

}  // namespace ksw::daemon
