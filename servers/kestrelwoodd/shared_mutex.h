// shared_mutex.h: a lock for many readers and one writer that a stream of readers cannot starve.
#pragma once

#include <pthread.h>

namespace ksw::daemon {

/// As std::shared_mutex, but a waiting writer goes before readers that come later; std::shared_mutex lets readers
/// overtake, so that whoever keeps asking could keep every registration waiting. Not recursive, for readers either.
class FairSharedMutex {
public:
    FairSharedMutex() {
        pthread_rwlockattr_t attributes;
        pthread_rwlockattr_init(&attributes);
        pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_WRITER_NONRECURSIVE_NP);
        pthread_rwlock_init(&lock_, &attributes);
        pthread_rwlockattr_destroy(&attributes);
    }
    FairSharedMutex(const FairSharedMutex&) = delete;
    FairSharedMutex& operator=(const FairSharedMutex&) = delete;
    ~FairSharedMutex() { pthread_rwlock_destroy(&lock_); }

    // The names that std::shared_lock calls.
    void lock() { pthread_rwlock_wrlock(&lock_); }
    void unlock() { pthread_rwlock_unlock(&lock_); }
    void lock_shared() { pthread_rwlock_rdlock(&lock_); }    // NOLINT(readability-identifier-naming)
    void unlock_shared() { pthread_rwlock_unlock(&lock_); }  // NOLINT(readability-identifier-naming)

private:
    pthread_rwlock_t lock_;
};

}  // namespace ksw::daemon
