// peer.h: one accepted connection of a server: what has arrived, what waits for an answer, what waits to be sent.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "platform/base/unique_fd.h"
#include "platform/host/peer_identity.h"
#include "platform/ipc/frame.h"
#include "platform/ipc/responder.h"
#include "platform/ipc/server_core.h"
#include "platform/ipc/stream.h"

namespace ksw::archive {
class Reader;
}  // namespace ksw::archive

namespace ksw::ipc {

/// A request that has been dispatched. Its peer guards the members that it says.
struct PendingRequest {
    std::shared_ptr<Peer> peer;
    std::uint32_t serial = 0;
    Charge charge;
    Data frame;  ///< The answer, while it is made.

    // Guarded by the peer.
    std::optional<Instant> due;  ///< Absent: it may wait for ever.
    bool isOver = false;         ///< Answered, by whomever.
    PendingRequest* previous = nullptr;
    PendingRequest* next = nullptr;

    explicit PendingRequest(Charge ownCharge) : charge(std::move(ownCharge)) {}
};

/// Any thread. Reading and dispatching is for one thread at a time, which `work` sees to; answers come from
/// anywhere.
class Peer : public std::enable_shared_from_this<Peer> {
public:
    Peer(UniqueFd fd, host::PeerIdentity identity, std::shared_ptr<ServerCore> core, const Service& service);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    std::uint64_t key() const { return key_; }
    int fd() const { return stream_.fd(); }
    const host::PeerIdentity& identity() const { return identity_; }

    /// Notes events of the socket. Whether it is the caller's to see that the peer gets a turn; else it has one
    /// already, or waits for it.
    bool note(std::uint32_t events);
    /// Serves what has arrived, until its turn is over. Whether something is left to do.
    bool work();

    /// Answers for requests that are late and ends the connection when it has stalled. When something will be due
    /// next; absent when nothing is under way.
    std::optional<Instant> expire(Instant now);

    /// Ends the connection. For the thread that works on it, or when none does any more.
    void close();

    // Of its requests.

    /// Sends an answer whose frame is written, unless the request is over.
    void answer(PendingRequest& request, FrameKind kind);
    /// Sends a refusal, unless the request is over.
    void refuse(PendingRequest& request, std::int64_t code, std::string_view text);
    /// Takes a request back that is over.
    void release(std::unique_ptr<PendingRequest> request);

private:
    friend class Turns;
    using Lock = std::unique_lock<std::mutex>;

    /// What became of the frames that have arrived.
    enum class Arrived : std::uint8_t { Served, Left, Paused, Broken };

    // reading, in peer_reading.cpp
    bool handle(std::uint32_t events);
    bool isTurnOver() const;
    Arrived serveArrived();
    Arrived serveFrames(bool& isInBatch);
    Arrived serve(const Frame& frame, bool& isInBatch);
    std::unique_ptr<PendingRequest> begin(const Frame& frame, Patience patience, bool isInBatch);
    void dispatch(const Dispatcher::Entry& entry, const RequestContext& context, PendingAnswer answer,
                  archive::Reader& reader, bool isInBatch);
    void noteProgress();
    void endBatch();

    // sending, in peer_sending.cpp
    void finish(PendingRequest& request, FrameKind kind, Data& frame);
    void unlink(PendingRequest& request);
    void submit(Bytes frame);
    void append(Bytes bytes);
    void flush();
    void dropWhileLocked();
    void wantWriting(bool isWanted);
    void resumeIfPaused();
    bool isFull() const;

    // Constant after construction.
    const std::shared_ptr<ServerCore> core_;
    const host::PeerIdentity identity_;
    const Service& service_;
    const std::uint64_t key_;
    const std::size_t requestMax_;

    std::atomic<std::uint32_t> events_{0};     // not yet handled, and whether a thread is at it
    std::atomic<Instant::rep> frameSince_{0};  // last progress of a frame that has begun; 0: none

    Stream stream_;               // received from by the working thread; sent to and closed under the mutex
    std::size_t missing_ = 0;     // of the frame that has begun; the working thread's
    std::shared_ptr<void> kept_;  // the service's own, until the connection ends; the working thread's
    Instant turnEnd_{};           // the working thread's

    std::mutex mutex_;  // guards all below; held by whoever calls the sending functions
    bool isClosed_ = false;
    bool isPaused_ = false;  // too many requests in flight, or too much to send: not reading
    bool isWaitingToWrite_ = false;
    std::thread::id batcher_;  // the thread that serves several requests and sends their answers together
    Data out_;                 // answers not yet taken by the socket
    std::size_t outSent_ = 0;
    Charge outCharge_;
    Instant outSince_{};  // last progress of `out_`
    std::size_t inFlight_ = 0;
    PendingRequest* first_ = nullptr;
    std::unique_ptr<PendingRequest> spare_;

    Turns::User& turns_;
    std::shared_ptr<Peer> nextInTurn_;  // who waits behind it; guarded by the turns
};

}  // namespace ksw::ipc
