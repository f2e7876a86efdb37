// main_queue.h: what a program runs on its main thread: where the controllers' delegates are called.
#pragma once

#include <cstddef>
#include <functional>

#include <kestrelwood/export.h>

namespace ksw {

/// The process's main queue: blocks that run one after the other, in the order in which they were given, on the
/// thread that runs the queue. A program runs it with `run`, or from an event loop of its own: wait until
/// `descriptor` is readable, then call `runWaiting`. While nobody does either, blocks wait.
///
/// Threads: any thread may call anything; one thread at a time runs blocks. A forked child begins with an empty
/// queue and a descriptor of its own.
class KSW_EXPORT MainQueue {
public:
    /// What the queue runs, once.
    using Block = std::function<void()>;

    MainQueue() = delete;

    /// Has the block run, and returns at once. It must not throw.
    static void async(Block block);

    /// Runs blocks as they come, until `stop`. Blocks.
    static void run();
    /// Ends `run`, or the next one when none is under way, after the block that runs now. Blocks that wait stay.
    static void stop();

    /// Readable while blocks wait, for poll, epoll or select; the queue's own, to be neither read nor closed. -1
    /// when the kernel gives no descriptor.
    static int descriptor();
    /// Runs the blocks that wait now, but not those that come meanwhile. How many it ran; 0 while blocks run
    /// already: in a block, or on another thread.
    static std::size_t runWaiting();
};

}  // namespace ksw
