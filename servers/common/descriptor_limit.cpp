#include "servers/common/descriptor_limit.h"

#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "platform/base/limits.h"

namespace ksw::servers {

Status raiseDescriptorLimit() {
    // The soft limit that a process begins with is for programs that use select; without more, observers could take
    // the descriptors of requests.
    constexpr rlim_t kWanted = 2 * limits::kConnectionsMax + 256;
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= kWanted) {
        return {};
    }
    limit.rlim_cur = std::min(limit.rlim_max, kWanted);
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur < kWanted) {
        return Error(kPosixErrorDomain, EMFILE,
                     "only " + std::to_string(limit.rlim_cur) + " descriptors are allowed; full service takes " +
                         std::to_string(kWanted));
    }
    return {};
}

}  // namespace ksw::servers
