#include "platform/ipc/quota.h"

#include <algorithm>
#include <utility>

namespace ksw::ipc {

Charge::Charge(Charge&& other) noexcept
    : quotas_(other.quotas_), uid_(other.uid_), bytes_(std::exchange(other.bytes_, 0)) {}

bool Charge::tryResize(std::size_t bytes) {
    if (bytes <= bytes_) {
        resize(bytes);
        return true;
    }
    if (quotas_ != nullptr && !quotas_->tryHold(uid_, bytes - bytes_)) {
        return false;
    }
    bytes_ = bytes;
    return true;
}

void Charge::resize(std::size_t bytes) {
    if (bytes >= bytes_) {
        return;
    }
    if (quotas_ != nullptr) {
        quotas_->release(uid_, bytes_ - bytes);
    }
    bytes_ = bytes;
}

bool Quotas::isFull() const {
    const std::lock_guard lock(mutex_);
    return connections_ >= bounds_.connections;
}

std::size_t Quotas::connections() const {
    const std::lock_guard lock(mutex_);
    return connections_;
}

bool Quotas::tryConnect(Uid uid) {
    const std::lock_guard lock(mutex_);
    const std::size_t reserved = uid == 0 ? 0 : std::min(bounds_.connectionsReservedForRoot, bounds_.connections);
    const auto user = users_.try_emplace(uid).first;
    if (connections_ >= bounds_.connections - reserved || user->second.connections >= bounds_.connectionsPerUid) {
        ++hits_;
        forgetIfIdle(user);
        return false;
    }
    ++user->second.connections;
    ++connections_;
    return true;
}

void Quotas::disconnect(Uid uid) {
    const std::lock_guard lock(mutex_);
    const auto user = users_.find(uid);
    if (user != users_.end() && user->second.connections > 0) {
        --user->second.connections;
        --connections_;
        forgetIfIdle(user);
    }
}

std::uint64_t Quotas::hits() const {
    const std::lock_guard lock(mutex_);
    return hits_;
}

bool Quotas::tryHold(Uid uid, std::size_t bytes) {
    const std::lock_guard lock(mutex_);
    const auto user = users_.try_emplace(uid).first;
    const std::size_t held = user->second.bytes;
    const std::size_t others = users_.size() - 1;
    const std::size_t left = bounds_.bytesHeld - (bytes_ - held);
    const std::size_t share = std::min(bounds_.bytesPerUid, left / (others + 2));
    if (held > share || bytes > share - held) {
        ++hits_;
        forgetIfIdle(user);
        return false;
    }
    user->second.bytes += bytes;
    bytes_ += bytes;
    return true;
}

void Quotas::release(Uid uid, std::size_t bytes) {
    const std::lock_guard lock(mutex_);
    const auto user = users_.find(uid);
    if (user != users_.end()) {
        user->second.bytes -= bytes;
        bytes_ -= bytes;
        forgetIfIdle(user);
    }
}

void Quotas::forgetIfIdle(std::map<Uid, User>::iterator user) {
    if (user->second.connections == 0 && user->second.bytes == 0) {
        users_.erase(user);
    }
}

}  // namespace ksw::ipc
