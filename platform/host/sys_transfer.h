// sys_transfer.h: what one read, write, receive or send did.
#pragma once

#include <string_view>

#include <sys/types.h>

#include "platform/host/sys_call.h"

namespace ksw::host::sys {

/// Neither a byte nor `wouldBlock`: the stream or file has ended (when reading).
struct Transfer {
    std::size_t bytes = 0;
    bool wouldBlock = false;  ///< EAGAIN: nothing was moved, a later call may.
};

/// What the kernel returned, or the errno that it left behind, as a transfer or an error of the call `name`.
inline Result<Transfer> transferOf(ssize_t returned, std::string_view name, int fd) {
    if (returned >= 0) {
        return Transfer{static_cast<std::size_t>(returned), false};
    }
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
        return Transfer{0, true};
    }
    return callError(errno, name, fd);
}

}  // namespace ksw::host::sys
