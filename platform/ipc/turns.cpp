#include "platform/ipc/turns.h"

#include <utility>

#include "platform/ipc/peer.h"

namespace ksw::ipc {

Turns::User& Turns::join(Uid uid) {
    const std::lock_guard lock(mutex_);
    User& user = users_[uid];
    ++user.peers;
    return user;
}

void Turns::leave(Uid uid) {
    const std::lock_guard lock(mutex_);
    const auto user = users_.find(uid);
    if (--user->second.peers == 0) {
        users_.erase(user);
    }
}

bool Turns::rest() {
    const std::lock_guard lock(mutex_);
    if (mayServeAny()) {
        return false;
    }
    ++resting_;
    return true;
}

Turns::Turn Turns::take(std::span<std::shared_ptr<Peer>> arrived, bool hasRested) {
    const std::lock_guard lock(mutex_);
    resting_ -= hasRested ? 1 : 0;
    for (std::shared_ptr<Peer>& peer : arrived) {
        enqueue(std::move(peer));
    }
    User* before = nullptr;
    for (User* user = first_; user != nullptr; before = std::exchange(user, user->next)) {
        if (user->workers == workersPerUser_) {
            continue;
        }
        (before == nullptr ? first_ : before->next) = user->next;
        last_ = last_ == user ? before : last_;
        std::shared_ptr<Peer> peer = dequeue(*user);
        ++user->workers;
        if (user->first != nullptr) {
            append(*user);
        }
        return {std::move(peer), resting_ > 0 && mayServeAny()};
    }
    return {};
}

void Turns::end(std::shared_ptr<Peer> peer, bool again) {
    const std::lock_guard lock(mutex_);
    --peer->turns_.workers;
    if (again) {
        enqueue(std::move(peer));
    }
}

void Turns::clear() {
    while (true) {
        const std::shared_ptr<Peer> peer = take({}, false).peer;
        if (peer == nullptr) {
            return;
        }
        end(peer, false);
    }
}

void Turns::enqueue(std::shared_ptr<Peer> peer) {
    User& user = peer->turns_;
    Peer* const added = peer.get();
    if (user.last == nullptr) {
        append(user);
        user.first = std::move(peer);
    } else {
        user.last->nextInTurn_ = std::move(peer);
    }
    user.last = added;
}

std::shared_ptr<Peer> Turns::dequeue(User& user) {
    std::shared_ptr<Peer> peer = std::exchange(user.first, nullptr);
    user.first = std::move(peer->nextInTurn_);
    user.last = user.first == nullptr ? nullptr : user.last;
    return peer;
}

void Turns::append(User& user) {
    user.next = nullptr;
    (last_ == nullptr ? first_ : last_->next) = &user;
    last_ = &user;
}

bool Turns::mayServeAny() const {
    for (const User* user = first_; user != nullptr; user = user->next) {
        if (user->workers < workersPerUser_) {
            return true;
        }
    }
    return false;
}

}  // namespace ksw::ipc
