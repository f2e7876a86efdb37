#include "platform/ipc/parker.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ksw::ipc {

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t), "the kernel waits on the word itself");

Wake Parker::park() {
    std::uint32_t word = 0;
    while ((word = word_.exchange(0, std::memory_order_acquire)) == 0) {
        // Interrupted or too late: the loop looks again.
        ::syscall(SYS_futex, &word_, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
    }
    return static_cast<Wake>(word);
}

void Parker::unpark(Wake word) {
    word_.store(static_cast<std::uint32_t>(word), std::memory_order_release);
    ::syscall(SYS_futex, &word_, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

}  // namespace ksw::ipc
