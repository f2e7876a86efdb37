#include "platform/host/process_epoch.h"

#include <atomic>

#include <sys/mman.h>
#include <unistd.h>

namespace ksw::host {

namespace {

using Word = std::atomic<std::uint64_t>;
static_assert(Word::is_always_lock_free);

/// The page whose word the kernel zeroes in a forked child; null until it is made.
constinit std::atomic<Word*> wipedWord{nullptr};
/// The kernel has no such pages (before Linux 4.14): the pid has to do.
constinit std::atomic<bool> hasNoWipedPages{false};
/// The last epoch given out in this process and those it was forked from.
constinit Word lastEpoch{0};

Word* makeWipedWord() {
    const auto size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    void* page = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        return nullptr;
    }
    if (::madvise(page, size, MADV_WIPEONFORK) != 0) {
        ::munmap(page, size);
        return nullptr;
    }
    Word* expected = nullptr;
    auto* word = static_cast<Word*>(page);  // zero pages are a valid atomic of zero
    if (wipedWord.compare_exchange_strong(expected, word)) {
        return word;
    }
    ::munmap(page, size);
    return expected;
}

}  // namespace

std::uint64_t processEpoch() {
    Word* word = wipedWord.load(std::memory_order_acquire);
    if (word == nullptr) {
        if (!hasNoWipedPages.load(std::memory_order_relaxed)) {
            word = makeWipedWord();
        }
        if (word == nullptr) {
            hasNoWipedPages.store(true, std::memory_order_relaxed);
            return static_cast<std::uint64_t>(::getpid());
        }
    }
    std::uint64_t epoch = word->load(std::memory_order_relaxed);
    if (epoch != 0) {
        return epoch;
    }
    const std::uint64_t next = lastEpoch.fetch_add(1) + 1;
    return word->compare_exchange_strong(epoch, next) ? next : epoch;
}

}  // namespace ksw::host
