// parker.h: one thread waits here for one word from another.
#pragma once

#include <atomic>
#include <cstdint>

namespace ksw::ipc {

/// What a parked thread is told.
enum class Wake : std::uint32_t {
    None = 0,
    Done = 1,  ///< The reply is there.
    Read = 2,  ///< Reading is this thread's business now.
};

/// One thread parks, one other unparks it, once for each parking. `unpark` may come before `park`.
class Parker {
public:
    /// Waits for the word and takes it.
    Wake park();
    void unpark(Wake word);

private:
    std::atomic<std::uint32_t> word_{0};
};

}  // namespace ksw::ipc
