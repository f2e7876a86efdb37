#include "platform/host/lock_word.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ksw::host {

void LockWord::lockContended() {
    // Whoever comes out of the wait cannot know whether others still wait, so it locks as contended.
    while (word_.exchange(kContended, std::memory_order_acquire) != kUnlocked) {
        // Returns at once when the word has changed; an interruption is as good as a wake-up.
        ::syscall(SYS_futex, &word_, FUTEX_WAIT_PRIVATE, kContended, nullptr, nullptr, 0);
    }
}

void LockWord::wakeOne() {
    ::syscall(SYS_futex, &word_, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

}  // namespace ksw::host
