// link.h: one socket of a client, from the dialling to its end, and the calls that are in flight over it.
//
// The callers read: who waits for a reply while nobody reads becomes the reader, hands the replies of others to
// them, and passes the reading on when its own has come.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <vector>

#include "platform/base/result.h"
#include "platform/base/unique_fd.h"
#include "platform/host/lock_word.h"
#include "platform/ipc/call.h"
#include "platform/ipc/frame.h"
#include "platform/ipc/stream.h"

namespace ksw::ipc {

/// Any number of threads. Every call that was sent is over exactly once: with its answer, or with an error when the
/// link ends.
class Link {
public:
    /// `sink` must outlive the link. `requestMax`: the largest body that the server takes from this process.
    Link(UniqueFd fd, std::size_t requestMax, AsyncSink& sink);
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    /// Whether the peer is still there, as far as anyone has noticed.
    bool isAlive() const { return isAlive_.load(std::memory_order_acquire); }
    /// Whether nothing more will come over it.
    bool hasEnded() const {
        const std::lock_guard lock(lock_);
        return endError_.has_value();
    }
    std::size_t requestMax() const { return requestMax_; }
    /// What is readable when something has come, or the link has ended.
    int fd() const { return stream_.fd(); }

    /// What became of a sending.
    enum class Sent : std::uint8_t {
        Whole,    ///< The call will be over, by `await` or through the sink.
        Gone,     ///< The peer is gone and has not got the request whole; the call is as before.
        Crowded,  ///< More calls are in flight than serials can tell apart; nothing was sent.
    };
    /// Sends a call; one thread at a time. Blocks while the peer does not take it.
    Sent send(Call& call);

    /// Waits until a synchronous call is over, reading if nobody does.
    void await(Call& call);
    /// Says that an asynchronous call was sent: from now on it may be handed to the sink, which gets such calls in
    /// the order in which they are over.
    void post(Call& call);
    /// Reads once for the asynchronous calls, if some are in flight and nobody reads. Blocks until bytes come.
    /// Tells the sink when it should be called again. Returns without having read when `bell` is readable first;
    /// -1: there is none.
    void readForAsync(int bell = -1);

    /// Ends the link: calls in flight are over with `error`, and readers return.
    void end(const Error& error);

private:
    using Lock = std::unique_lock<host::LockWord>;
    class Wakes;

    bool hasBytesBefore(int bell) const;
    bool readOnce(const Call* until);
    std::optional<Error> receive();
    std::optional<Error> dispatch(Wakes& wakes);
    std::optional<Error> answer(const Frame& frame, Wakes& wakes);
    void passReading(Wakes& wakes);
    void complete(Call& call, Wakes& wakes);
    void handOver();
    void failAll(const Error& error, Wakes& wakes);
    Call* find(std::uint32_t serial) const;
    bool enter(Call& call);
    void leave(const Call& call);

    // Constant after construction.
    const std::size_t requestMax_;
    AsyncSink& sink_;

    std::atomic<bool> isAlive_{true};
    Stream stream_;            // received from by the reader only; sent to by one sender at a time
    std::size_t missing_ = 0;  // of the frame that has begun; the reader's

    mutable host::LockWord lock_;  // guards all below
    bool hasReader_ = false;
    std::vector<Call*> places_;  // calls in flight; a serial's low bits are its index
    std::vector<std::uint16_t> freePlaces_;
    std::vector<Call*> parked_;  // waiting for their reply or for the reading
    std::size_t asyncInFlight_ = 0;
    CallRow over_;             // asynchronous calls, from the first whose sender has not said yet that it was sent
    std::uint16_t round_ = 0;  // the serials' high bits, so that a late answer meets no later call
    std::optional<Error> endError_;
};

}  // namespace ksw::ipc
