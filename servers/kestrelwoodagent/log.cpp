#include "servers/kestrelwoodagent/log.h"

#include "platform/host/log.h"

namespace ksw::agentserver {

namespace {

constexpr host::Log kLog{"agent"};

}  // namespace

void logError(std::string_view what) {
    kLog.error("kestrelwoodagent: %{public}@", what);
}

}  // namespace ksw::agentserver
