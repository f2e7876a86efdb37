// peer_reading.cpp: what arrives from a peer, and who serves it.

#include <new>
#include <utility>

#include <sys/epoll.h>

#include "platform/archive/cbor_reader.h"
#include "platform/base/limits.h"
#include "platform/base/text.h"
#include "platform/ipc/body.h"
#include "platform/ipc/other_version.h"
#include "platform/ipc/peer.h"

namespace ksw::ipc {

namespace {

/// Beside the events: a thread is handling them.
constexpr std::uint32_t kBusy = 1U << 20U;
constexpr std::uint32_t kEndEvents = static_cast<std::uint32_t>(EPOLLRDHUP) | EPOLLHUP | EPOLLERR;
/// How long others wait when a peer has more to serve than it has time for; the clock is a few milliseconds coarse.
constexpr auto kTurn = std::chrono::milliseconds(1);
/// A handler that takes longer holds back no answer of its batch.
constexpr auto kQuick = std::chrono::microseconds(200);
/// Smaller requests are covered by what the connection itself is charged, in bytes.
constexpr std::size_t kUnchargedBody = 4 * limits::kKiB;

std::size_t requestMaxOf(const host::PeerIdentity& identity, const ServerLimits& limits) {
    return identity.uid() == 0 ? limits.rootRequestBody : limits.requestBody;
}

}  // namespace

Peer::Peer(UniqueFd fd, host::PeerIdentity identity, std::shared_ptr<ServerCore> core, const Service& service)
    : core_(std::move(core)),
      identity_(std::move(identity)),
      service_(service),
      key_(core_->newKey()),
      requestMax_(requestMaxOf(identity_, core_->limits)),
      stream_(std::move(fd), Charge(core_->quotas, identity_.uid())),
      outCharge_(core_->quotas, identity_.uid()),
      turns_(core_->turns.join(identity_.uid())) {}

Peer::~Peer() {
    core_->turns.leave(identity_.uid());
}

bool Peer::note(std::uint32_t events) {
    return (events_.fetch_or(events | kBusy) & kBusy) == 0;
}

bool Peer::work() {
    turnEnd_ = coarseNow() + kTurn;
    while (true) {
        const std::uint32_t pending = events_.exchange(kBusy) & ~kBusy;
        if (handle(pending)) {
            events_.fetch_or(pending);
            return true;
        }
        std::uint32_t expected = kBusy;
        if (events_.compare_exchange_strong(expected, 0)) {
            return false;
        }
        if (isTurnOver()) {
            return true;
        }
    }
}

bool Peer::isTurnOver() const {
    return coarseNow() >= turnEnd_;
}

/// Serves what the events tell of. Whether the turn has ended before that.
bool Peer::handle(std::uint32_t events) {
    {
        const Lock lock(mutex_);
        if (isClosed_) {
            return false;
        }
        if ((events & EPOLLOUT) != 0) {
            flush();
            resumeIfPaused();
        }
    }
    bool isDrained = false;
    while (true) {
        switch (serveArrived()) {
            case Arrived::Broken:
                core_->dropped.fetch_add(1);
                close();
                return false;
            case Arrived::Paused:
                frameSince_.store(0);
                return false;
            case Arrived::Left:
                frameSince_.store(0);
                return true;
            case Arrived::Served:
                break;
        }
        // A receive may stop early, at descriptors that came along for instance; then it stops within a frame.
        if (isDrained && stream_.buffer().bytes().empty() && (events & kEndEvents) == 0) {
            noteProgress();
            return false;
        }
        const Result<Received> received = stream_.receive(missing_);
        if (!received || *received == Received::End) {
            const bool isOverLimit = !received && received.error().code() == ENOMEM;
            core_->dropped.fetch_add(isOverLimit ? 1 : 0);
            close();
            return false;
        }
        if (*received == Received::Nothing) {
            noteProgress();
            return false;
        }
        isDrained = *received == Received::Drained;
        if (isTurnOver()) {
            frameSince_.store(0);  // what has come waits for this side now
            return true;
        }
    }
}

Peer::Arrived Peer::serveArrived() {
    bool isInBatch = false;
    Arrived arrived = Arrived::Broken;
    try {
        arrived = serveFrames(isInBatch);
    } catch (const std::bad_alloc&) {
        core_->quotaHits.fetch_add(1);
    }
    if (isInBatch) {
        endBatch();
    }
    return arrived;
}

Peer::Arrived Peer::serveFrames(bool& isInBatch) {
    while (true) {
        const Result<FrameSearch> found = findFrame(stream_.buffer().bytes(), requestMax_);
        if (!found) {
            if (const auto refusal = refusalOfOtherVersion(stream_.buffer().bytes())) {
                const Lock lock(mutex_);
                submit(*refusal);
            }
            return Arrived::Broken;
        }
        missing_ = found->bytesMissing;
        if (!found->frame) {
            return Arrived::Served;
        }
        if (found->frame->header.kind != FrameKind::Request) {
            return Arrived::Broken;
        }
        isInBatch = isInBatch || stream_.buffer().bytes().size() > found->frame->size();
        if (const Arrived arrived = serve(*found->frame, isInBatch); arrived != Arrived::Served) {
            return arrived;
        }
        stream_.buffer().consume(found->frame->size());
        if (isTurnOver()) {
            return Arrived::Left;
        }
    }
}

Peer::Arrived Peer::serve(const Frame& frame, bool& isInBatch) {
    archive::DecodeBudget budget(frame.body.size());
    archive::Reader reader(frame.body, budget);
    std::size_t count = 0;
    std::string_view selector;
    const bool isRequest = reader.enterArray(count) && count == 2 && reader.text(selector, limits::kSelectorMax);
    const Dispatcher::Entry* entry = isRequest ? service_.dispatcher.find(selector) : nullptr;
    std::unique_ptr<PendingRequest> request =
        begin(frame, entry == nullptr ? Patience::Ordinary : entry->patience, isInBatch);
    if (request == nullptr) {
        return Arrived::Paused;
    }
    const bool isCovered = frame.body.size() <= kUnchargedBody || request->charge.tryResize(frame.body.size());
    PendingAnswer answer(std::move(request));
    const RequestContext context{identity_, service_.name, selector, kept_};
    if (!isRequest) {
        answer.refuse(static_cast<std::int64_t>(Refusal::ArgumentsInvalid),
                      "request: [selector, [arguments]] expected");
    } else if (entry == nullptr) {
        answer.refuse(static_cast<std::int64_t>(Refusal::UnknownMethod),
                      format("\"%@\" has no method \"%@\"", context.service, selector));
    } else if (!isCovered) {
        answer.refuse(static_cast<std::int64_t>(Refusal::Overloaded), "the user holds too much already");
    } else {
        dispatch(*entry, context, std::move(answer), reader, isInBatch);
    }
    return Arrived::Served;
}

std::unique_ptr<PendingRequest> Peer::begin(const Frame& frame, Patience patience, bool isInBatch) {
    const std::optional<std::chrono::milliseconds> time = core_->timeFor(patience);
    std::unique_ptr<PendingRequest> request;
    {
        const Lock lock(mutex_);
        if (isFull()) {
            isPaused_ = true;
            return nullptr;
        }
        request = std::move(spare_);
        if (request == nullptr) {
            request = std::make_unique<PendingRequest>(Charge(core_->quotas, identity_.uid()));
        }
        request->peer = shared_from_this();
        request->serial = frame.header.serial;
        request->due = time ? std::optional(coarseNow() + *time) : std::nullopt;
        request->isOver = false;
        request->previous = nullptr;
        request->next = first_;
        if (first_ != nullptr) {
            first_->previous = request.get();
        }
        first_ = request.get();
        ++inFlight_;
        if (isInBatch) {
            batcher_ = std::this_thread::get_id();
        }
    }
    if (time) {
        core_->startTicking();
    }
    return request;
}

void Peer::dispatch(const Dispatcher::Entry& entry, const RequestContext& context, PendingAnswer answer,
                    archive::Reader& reader, bool isInBatch) {
    if (isInBatch && !entry.pace.isQuick()) {
        const Lock lock(mutex_);
        flush();
    }
    const Instant start = isInBatch ? std::chrono::steady_clock::now() : Instant{};
    try {
        entry.serve(context, std::move(answer), reader);
    } catch (...) {
        // Whatever it was, the answer's destructor has told the peer that there is none.
    }
    if (isInBatch) {
        entry.pace.setQuick(std::chrono::steady_clock::now() - start < kQuick);
    }
}

/// Remembers since when a frame that has begun makes no progress.
void Peer::noteProgress() {
    const bool hasBegun = !stream_.buffer().bytes().empty();
    if (!hasBegun && frameSince_.load(std::memory_order_relaxed) == 0) {
        return;
    }
    frameSince_.store(hasBegun ? coarseNow().time_since_epoch().count() : 0);
    if (hasBegun) {
        core_->startTicking();
    }
}

void Peer::endBatch() {
    const Lock lock(mutex_);
    batcher_ = {};
    flush();
}

void Peer::close() {
    {
        const Lock lock(mutex_);
        if (isClosed_) {
            return;
        }
        isClosed_ = true;
        while (first_ != nullptr) {
            unlink(*first_);
        }
        Data().swap(out_);
        outCharge_.resize(0);
        stream_.close();
    }
    kept_.reset();  // may hold requests of this peer, which keep it alive
    core_->connectionEnded(identity_.uid());
    core_->remove(key_);
}

}  // namespace ksw::ipc
