// stream.h: one end of a connected socket and the bytes that have arrived over it. Knows no message.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include <kestrelwood/values/data.h>

#include "platform/base/limits.h"
#include "platform/base/result.h"
#include "platform/base/unique_fd.h"
#include "platform/ipc/quota.h"

namespace ksw::ipc {

/// Bytes that have arrived and are not yet used. Grows only as bytes arrive, at most limits::kBufferAheadMax ahead
/// of them, and becomes small again when it is empty. One thread at a time.
class ReceiveBuffer {
public:
    explicit ReceiveBuffer(Charge charge) : charge_(std::move(charge)) {}
    ~ReceiveBuffer();
    ReceiveBuffer(const ReceiveBuffer&) = delete;
    ReceiveBuffer& operator=(const ReceiveBuffer&) = delete;

    Bytes bytes() const { return {storage_ + begin_, end_ - begin_}; }
    /// Forgets the first `count` bytes.
    void consume(std::size_t count);

    /// Makes room for the next bytes, of which `wanted` are expected. Empty when the charge or the allocator denies
    /// it; the buffer then is as before.
    std::span<std::uint8_t> room(std::size_t wanted);
    /// Says that the first `count` bytes of that room have been filled.
    void filled(std::size_t count) { end_ += count; }

    std::size_t capacity() const { return capacity_; }

private:
    bool resize(std::size_t capacity);

    Charge charge_;
    std::uint8_t* storage_ = nullptr;  // owned; from malloc, since realloc moves large blocks without copying them
    std::size_t capacity_ = 0;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
};

/// What one receive did.
enum class Received : std::uint8_t {
    Everything,  ///< There may be more.
    Drained,     ///< Fewer bytes than there was room for: nothing more is there now.
    Nothing,     ///< A non-blocking socket has nothing now.
    End,         ///< The peer has ended its side.
};

/// Owns the socket. Receiving is for one thread at a time, sending for one thread at a time.
class Stream {
public:
    explicit Stream(UniqueFd fd, Charge charge = {}) : fd_(std::move(fd)), buffer_(std::move(charge)) {}

    int fd() const { return fd_.get(); }
    ReceiveBuffer& buffer() { return buffer_; }

    /// One receive, of at least one byte unless the socket is non-blocking; `wanted` bytes are expected.
    /// Descriptors that a peer passes along are closed by the kernel, since nothing asks for them. Error: the
    /// receive's errno, or ENOMEM when the buffer may not grow.
    Result<Received> receive(std::size_t wanted);

    /// Sends everything, blocking while the peer does not take it. Error: the send's errno; some may have been
    /// sent.
    Status sendAll(Bytes bytes);
    /// Sends what the socket takes now. The number of bytes taken.
    Result<std::size_t> sendSome(Bytes bytes);

    /// Ends both directions: who waits on the socket, on either end, sees its end.
    void shutDown();
    /// Gives the socket back to the kernel; nothing may be done with the stream afterwards.
    void close() { fd_.reset(); }

private:
    UniqueFd fd_;
    ReceiveBuffer buffer_;
};

}  // namespace ksw::ipc
