// peer_sending.cpp: answers on their way to a peer, and what is due by the clock.

#include <algorithm>
#include <new>
#include <utility>

#include "platform/base/limits.h"
#include "platform/ipc/body.h"
#include "platform/ipc/peer.h"

namespace ksw::ipc {

void Peer::answer(PendingRequest& request, FrameKind kind) {
    const Lock lock(mutex_);
    if (!request.isOver) {
        finish(request, kind, request.frame);
    }
}

void Peer::refuse(PendingRequest& request, std::int64_t code, std::string_view text) {
    const Lock lock(mutex_);
    if (request.isOver) {
        return;
    }
    try {
        if (encodeRefusal(code, text, request.frame)) {
            finish(request, FrameKind::Refusal, request.frame);
            return;
        }
    } catch (const std::bad_alloc&) {
        // Without memory for a few words the connection has to say it.
    }
    unlink(request);
    dropWhileLocked();
}

void Peer::release(std::unique_ptr<PendingRequest> request) {
    request->peer.reset();
    request->charge.resize(0);
    if (request->frame.capacity() > limits::kBufferAheadMax) {
        Data().swap(request->frame);
    }
    const Lock lock(mutex_);
    if (spare_ == nullptr && !isClosed_) {
        spare_ = std::move(request);
    }
}

void Peer::finish(PendingRequest& request, FrameKind kind, Data& frame) {
    unlink(request);
    (kind == FrameKind::Reply ? core_->served : core_->refused).fetch_add(1, std::memory_order_relaxed);
    writeHeader({kind, static_cast<std::uint32_t>(frame.size() - kHeaderSize), request.serial},
                std::span(frame).first<kHeaderSize>());
    submit(frame);
    resumeIfPaused();
}

/// The request is over from here on.
void Peer::unlink(PendingRequest& request) {
    request.isOver = true;
    (request.previous == nullptr ? first_ : request.previous->next) = request.next;
    if (request.next != nullptr) {
        request.next->previous = request.previous;
    }
    request.previous = nullptr;
    request.next = nullptr;
    --inFlight_;
}

void Peer::submit(Bytes frame) {
    if (isClosed_) {
        return;
    }
    const bool isInBatch = batcher_ == std::this_thread::get_id();
    if (out_.empty() && !isInBatch) {
        const Result<std::size_t> sent = stream_.sendSome(frame);
        if (!sent) {
            stream_.shutDown();
            return;
        }
        if (*sent == frame.size()) {
            return;
        }
        append(frame.subspan(*sent));
        wantWriting(true);
        return;
    }
    append(frame);
    if (!isInBatch) {
        flush();
    }
}

void Peer::append(Bytes bytes) {
    if (out_.empty()) {
        outSince_ = coarseNow();
        core_->startTicking();
    }
    if (outSent_ > limits::kBufferAheadMax) {
        out_.erase(out_.begin(), out_.begin() + static_cast<std::ptrdiff_t>(outSent_));
        outSent_ = 0;
    }
    try {
        if (outCharge_.tryResize(out_.size() + bytes.size())) {
            out_.insert(out_.end(), bytes.begin(), bytes.end());
            return;
        }
    } catch (const std::bad_alloc&) {
        core_->quotaHits.fetch_add(1);
    }
    dropWhileLocked();
}

void Peer::flush() {
    if (isClosed_) {
        return;
    }
    while (outSent_ < out_.size()) {
        const Result<std::size_t> sent = stream_.sendSome(Bytes(out_).subspan(outSent_));
        if (!sent) {
            stream_.shutDown();
            return;
        }
        if (*sent == 0) {
            wantWriting(true);
            return;
        }
        outSent_ += *sent;
        outSince_ = coarseNow();
    }
    outSent_ = 0;
    outCharge_.resize(0);
    if (out_.capacity() > limits::kBufferAheadMax) {
        Data().swap(out_);
    } else {
        out_.clear();
    }
    wantWriting(false);
    // A batch may have stopped at what has just left; then no event would tell that there is room again.
    resumeIfPaused();
}

/// Ends the connection from any thread: the working one sees the end of the socket and closes it.
void Peer::dropWhileLocked() {
    if (!isClosed_) {
        core_->dropped.fetch_add(1);
        stream_.shutDown();
    }
}

void Peer::wantWriting(bool isWanted) {
    if (isWaitingToWrite_ == isWanted) {
        return;
    }
    isWaitingToWrite_ = isWanted;
    if (!core_->watch(stream_.fd(), key_, isWanted, false)) {
        dropWhileLocked();
    }
}

bool Peer::isFull() const {
    return inFlight_ >= core_->limits.requestsInFlight || out_.size() - outSent_ > limits::kBufferAheadMax;
}

void Peer::resumeIfPaused() {
    if (isPaused_ && !isFull() && !isClosed_) {
        isPaused_ = false;
        isWaitingToWrite_ = false;
        wantWriting(true);  // is reported at once, and what has arrived is served then
    }
}

std::optional<Instant> Peer::expire(Instant now) {
    const Lock lock(mutex_);
    if (isClosed_) {
        return std::nullopt;
    }
    std::optional<Instant> next;
    const auto consider = [&](Instant instant) { next = next ? std::min(*next, instant) : instant; };
    for (PendingRequest* request = first_; request != nullptr;) {
        PendingRequest* const following = request->next;
        if (request->due && *request->due > now) {
            consider(*request->due);
        } else if (Data frame; request->due && encodeRefusal(static_cast<std::int64_t>(Refusal::TooLate),
                                                             "the server took too long", frame)) {
            finish(*request, FrameKind::Refusal, frame);
        }
        request = following;
    }
    flush();
    const Instant::rep frameSince = frameSince_.load();
    const Instant::rep since = out_.empty() ? frameSince : outSince_.time_since_epoch().count();
    if (since != 0) {
        const Instant due = Instant(Instant::duration(since)) + core_->limits.stall;
        if (due <= now) {
            dropWhileLocked();
            return next;
        }
        consider(due);
    }
    return next;
}

}  // namespace ksw::ipc
