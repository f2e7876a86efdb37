#include "platform/ipc/stream.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/host/sys.h"

namespace ksw::ipc {

namespace {

/// What an idle connection holds, in bytes: several small frames.
constexpr std::size_t kSmallBuffer = 8 * limits::kKiB;

}  // namespace

ReceiveBuffer::~ReceiveBuffer() {
    std::free(storage_);
}

void ReceiveBuffer::consume(std::size_t count) {
    begin_ += count;
    if (begin_ != end_) {
        return;
    }
    begin_ = 0;
    end_ = 0;
    if (capacity_ > limits::kBufferAheadMax) {
        std::free(storage_);
        storage_ = nullptr;
        capacity_ = 0;
        charge_.resize(0);
    }
}

std::span<std::uint8_t> ReceiveBuffer::room(std::size_t wanted) {
    const std::size_t arrived = end_ - begin_;
    const std::size_t ahead = std::clamp(wanted, std::size_t{1}, limits::kBufferAheadMax);
    if (capacity_ - end_ < ahead && begin_ > 0) {
        std::memmove(storage_, storage_ + begin_, arrived);
        begin_ = 0;
        end_ = arrived;
    }
    if (capacity_ - end_ < ahead && !resize(std::max(kSmallBuffer, arrived + ahead))) {
        return {};
    }
    return {storage_ + end_, capacity_ - end_};
}

bool ReceiveBuffer::resize(std::size_t capacity) {
    const std::size_t before = charge_.bytes();
    if (!charge_.tryResize(capacity)) {
        return false;
    }
    auto* storage = static_cast<std::uint8_t*>(std::realloc(storage_, capacity));
    if (storage == nullptr) {
        charge_.resize(before);
        return false;
    }
    storage_ = storage;
    capacity_ = capacity;
    return true;
}

Result<Received> Stream::receive(std::size_t wanted) {
    const std::span<std::uint8_t> room = buffer_.room(wanted);
    if (room.empty()) {
        return host::sys::callError(ENOMEM, "recv", fd());
    }
    Result<host::sys::Transfer> moved = host::sys::receive(fd(), room.data(), room.size());
    if (!moved) {
        return moved.error();
    }
    if (moved->wouldBlock) {
        return Received::Nothing;
    }
    buffer_.filled(moved->bytes);
    if (moved->bytes == 0) {
        return Received::End;
    }
    return moved->bytes < room.size() ? Received::Drained : Received::Everything;
}

Status Stream::sendAll(Bytes bytes) {
    while (!bytes.empty()) {
        Result<std::size_t> sent = sendSome(bytes);
        if (!sent) {
            return sent.error();
        }
        bytes = bytes.subspan(*sent);
    }
    return {};
}

Result<std::size_t> Stream::sendSome(Bytes bytes) {
    Result<host::sys::Transfer> moved = host::sys::send(fd(), bytes.data(), bytes.size());
    if (!moved) {
        return moved.error();
    }
    return moved->bytes;
}

void Stream::shutDown() {
    // A socket whose peer is gone already is what was asked for.
    (void)host::sys::shutdown(fd(), SHUT_RDWR);
}

}  // namespace ksw::ipc
