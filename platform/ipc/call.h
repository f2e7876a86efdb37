// call.h: one request of a client on its way, with the buffers that later requests use again.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <kestrelwood/values.h>

#include "platform/base/result.h"
#include "platform/host/lock_word.h"
#include "platform/ipc/frame.h"
#include "platform/ipc/parker.h"

namespace ksw::ipc {

/// One request. Its link guards all members but the buffer `request`, from the sending until the end is known.
struct Call {
    using Handler = std::function<void(Result<Bytes>)>;

    Data request;  ///< Header and body.
    Data reply;    ///< The answer's body.
    FrameKind kind = FrameKind::Reply;
    std::optional<Error> error;  ///< Why there is no answer.
    Handler handler;             ///< Set: asynchronous, run by the queue.
    std::uint32_t serial = 0;
    bool isOver = false;       ///< The answer or the error is there.
    bool hasNoMemory = false;  ///< The answer has come, and there was no memory for it.
    bool isPosted = false;     ///< Asynchronous and sent whole: may be handed to the queue when it is over.
    bool isParked = false;     ///< Its thread waits in `parker`.
    Parker parker;
    Call* next = nullptr;  ///< The row's that it stands in.

    /// Makes it ready for the next request; large buffers are given back.
    void reset();
};

/// Calls one behind the other; needs no memory. A call stands in one row at a time.
class CallRow {
public:
    /// Null when there is none.
    Call* first() const { return first_; }
    void add(Call* call);
    Call* takeFirst();
    /// Does nothing when the call stands in no row.
    void remove(const Call* call);

private:
    Call* first_ = nullptr;
    Call* last_ = nullptr;
};

/// The calls of one connection. Safe from any thread.
class CallPool {
public:
    /// A call for one request; give it back with `release`. Null without memory.
    Call* borrow();
    void release(Call* call);

private:
    host::LockWord lock_;  // guards all below
    std::vector<std::unique_ptr<Call>> all_;
    std::vector<Call*> free_;  // has room for all of them
};

/// Gives a call back.
struct CallReturn {
    CallPool* pool;
    void operator()(Call* call) const { pool->release(call); }
};
using BorrowedCall = std::unique_ptr<Call, CallReturn>;

/// Takes the calls that are over and have a handler, and is told when replies wait for somebody to read them.
class AsyncSink {
public:
    virtual void over(Call* call) noexcept = 0;
    virtual void needsReader() noexcept = 0;

protected:
    ~AsyncSink() = default;
};

}  // namespace ksw::ipc
