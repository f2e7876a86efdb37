#include "platform/ipc/link.h"

#include <array>
#include <new>
#include <utility>

#include <poll.h>

#include "platform/base/limits.h"
#include "platform/base/text.h"
#include "platform/host/sys_events.h"
#include "platform/ipc/body.h"

namespace ksw::ipc {

namespace {

/// A serial is a place among the calls in flight, and a round that tells one use of the place from the next.
constexpr unsigned kPlaceBits = 16;
constexpr std::size_t kPlacesMax = std::size_t{1} << kPlaceBits;

std::size_t placeOf(std::uint32_t serial) {
    return serial & (kPlacesMax - 1);
}

}  // namespace

/// The threads to wake once the lock is released, so that they do not run into it.
class Link::Wakes {
public:
    Wakes() = default;
    Wakes(const Wakes&) = delete;
    Wakes& operator=(const Wakes&) = delete;
    ~Wakes() {
        for (std::size_t index = 0; index < count_; ++index) {
            entries_[index].first->parker.unpark(entries_[index].second);
        }
    }

    void add(Call* call, Wake word) {
        if (count_ == entries_.size()) {
            call->parker.unpark(word);
            return;
        }
        entries_[count_++] = {call, word};
    }

private:
    std::array<std::pair<Call*, Wake>, 32> entries_;
    std::size_t count_ = 0;
};

Link::Link(UniqueFd fd, std::size_t requestMax, AsyncSink& sink)
    : requestMax_(requestMax), sink_(sink), stream_(std::move(fd)) {
    noMemoryError();  // made now, so that it is there when it is needed
}

Link::Sent Link::send(Call& call) {
    {
        const Lock lock(lock_);
        if (endError_) {
            return Sent::Gone;
        }
        if (!enter(call)) {
            return Sent::Crowded;
        }
    }
    writeHeader({FrameKind::Request, static_cast<std::uint32_t>(call.request.size() - kHeaderSize), call.serial},
                std::span(call.request).first<kHeaderSize>());
    if (stream_.sendAll(call.request)) {
        return Sent::Whole;
    }
    const Lock lock(lock_);
    isAlive_.store(false, std::memory_order_release);
    if (call.isOver && !call.error) {
        return Sent::Whole;  // answered before it was sent to its end
    }
    if (!call.isOver) {
        leave(call);
    } else if (call.handler) {
        over_.remove(&call);
        handOver();
    }
    call.isOver = false;
    call.error.reset();
    if (!endError_ && !hasReader_ && freePlaces_.size() == places_.size()) {
        endError_ = Error(ConnectionError::Interrupted, "the server closed the connection");
    }
    return Sent::Gone;
}

void Link::await(Call& call) {
    {
        Lock lock(lock_);
        if (call.isOver) {
            return;
        }
        if (hasReader_) {
            call.isParked = true;
            parked_.push_back(&call);
            lock.unlock();
            if (call.parker.park() == Wake::Done) {
                return;
            }
        } else {
            hasReader_ = true;
        }
    }
    while (readOnce(&call)) {
    }
}

void Link::post(Call& call) {
    const Lock lock(lock_);
    call.isPosted = true;
    if (call.isOver) {
        handOver();
    } else if (!hasReader_) {
        sink_.needsReader();
    }
}

void Link::readForAsync(int bell) {
    {
        const Lock lock(lock_);
        if (hasReader_ || asyncInFlight_ == 0) {
            return;
        }
        hasReader_ = true;
    }
    if (bell >= 0 && !hasBytesBefore(bell)) {
        Wakes wakes;
        const Lock lock(lock_);
        passReading(wakes);
        return;
    }
    readOnce(nullptr);
}

bool Link::hasBytesBefore(int bell) const {
    pollfd waiting[] = {{stream_.fd(), POLLIN, 0}, {bell, POLLIN, 0}};
    const Result<std::size_t> count = host::sys::poll(waiting, std::nullopt);
    return !count || waiting[0].revents != 0;
}

void Link::end(const Error& error) {
    Wakes wakes;
    const Lock lock(lock_);
    stream_.shutDown();
    failAll(error, wakes);
}

/// The reader's: receives once and hands out what came. False: `until` (null: whatever came) is over, and the
/// reading has been passed on.
bool Link::readOnce(const Call* until) {
    std::optional<Error> failure = receive();
    Wakes wakes;
    const Lock lock(lock_);
    if (!failure) {
        failure = dispatch(wakes);
    }
    if (failure) {
        failAll(*failure, wakes);
    }
    if (until != nullptr && !until->isOver) {
        return true;
    }
    passReading(wakes);
    return false;
}

std::optional<Error> Link::receive() try {
    Result<Received> received = stream_.receive(missing_);
    if (!received) {
        return Error(ConnectionError::Interrupted, received.error().localizedDescription());
    }
    if (*received == Received::End) {
        return Error(ConnectionError::Interrupted, "the server closed the connection");
    }
    return std::nullopt;
} catch (const std::bad_alloc&) {
    return noMemoryError();
}

std::optional<Error> Link::dispatch(Wakes& wakes) try {
    while (true) {
        const Result<FrameSearch> found = findFrame(stream_.buffer().bytes(), limits::kFrameBodyMax);
        if (!found) {
            return Error(ConnectionError::ReplyInvalid, found.error().localizedDescription());
        }
        missing_ = found->bytesMissing;
        if (!found->frame) {
            return std::nullopt;
        }
        if (std::optional<Error> failure = answer(*found->frame, wakes)) {
            return failure;
        }
        stream_.buffer().consume(found->frame->size());
    }
} catch (const std::bad_alloc&) {
    return noMemoryError();
}

std::optional<Error> Link::answer(const Frame& frame, Wakes& wakes) {
    Call* call = find(frame.header.serial);
    if (call == nullptr || frame.header.kind == FrameKind::Request) {
        return Error(ConnectionError::ReplyInvalid,
                     format("frame: kind %d with the serial %ld answers no request",
                            static_cast<int>(frame.header.kind), frame.header.serial));
    }
    call->kind = frame.header.kind;
    try {
        call->reply.assign(frame.body.begin(), frame.body.end());
    } catch (const std::bad_alloc&) {
        call->hasNoMemory = true;
    }
    complete(*call, wakes);
    return std::nullopt;
}

void Link::passReading(Wakes& wakes) {
    if (!parked_.empty()) {
        Call* next = parked_.back();
        parked_.pop_back();
        next->isParked = false;
        wakes.add(next, Wake::Read);
        return;
    }
    hasReader_ = false;
    if (asyncInFlight_ > 0) {
        sink_.needsReader();
    }
}

void Link::complete(Call& call, Wakes& wakes) {
    leave(call);
    call.isOver = true;
    if (call.handler) {
        over_.add(&call);
        handOver();
    } else if (call.isParked) {
        call.isParked = false;
        std::erase(parked_, &call);
        wakes.add(&call, Wake::Done);
    }
}

/// An answer can come before its request's sender has come back from sending; the answers behind it wait for that.
void Link::handOver() {
    while (over_.first() != nullptr && over_.first()->isPosted) {
        sink_.over(over_.takeFirst());
    }
}

void Link::failAll(const Error& error, Wakes& wakes) {
    isAlive_.store(false, std::memory_order_release);
    if (!endError_) {
        endError_ = error;
    }
    for (Call* call : places_) {
        if (call != nullptr) {
            call->error = endError_;
            complete(*call, wakes);
        }
    }
}

Call* Link::find(std::uint32_t serial) const {
    const std::size_t place = placeOf(serial);
    Call* call = place < places_.size() ? places_[place] : nullptr;
    return call != nullptr && call->serial == serial ? call : nullptr;
}

bool Link::enter(Call& call) {
    if (freePlaces_.empty()) {
        if (places_.size() == kPlacesMax) {
            return false;
        }
        const std::size_t count = places_.size() + 1;
        freePlaces_.reserve(count);
        parked_.reserve(count);
        places_.push_back(nullptr);
        freePlaces_.push_back(static_cast<std::uint16_t>(count - 1));
    }
    const std::uint16_t place = freePlaces_.back();
    freePlaces_.pop_back();
    places_[place] = &call;
    call.serial = (std::uint32_t{round_++} << kPlaceBits) | place;
    asyncInFlight_ += call.handler ? 1 : 0;
    return true;
}

void Link::leave(const Call& call) {
    const std::size_t place = placeOf(call.serial);
    places_[place] = nullptr;
    freePlaces_.push_back(static_cast<std::uint16_t>(place));
    asyncInFlight_ -= call.handler ? 1 : 0;
}

}  // namespace ksw::ipc
