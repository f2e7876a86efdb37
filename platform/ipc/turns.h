// turns.h: which peer a worker serves next, so that no user has all the workers of a server.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <span>

#include <kestrelwood/values/audit_token.h>

namespace ksw::ipc {

class Peer;

/// The peers that have something to serve and no worker yet. Safe from any thread.
///
/// Users take turns, and so do the peers of each. One worker is left to others by whoever has many peers, so that
/// handlers that block do not hold up who comes next.
class Turns {
public:
    /// What a user has of the workers. Guarded by the turns.
    struct User {
        std::size_t peers = 0;    ///< That have joined.
        std::size_t workers = 0;  ///< That serve it now.
        std::shared_ptr<Peer> first;
        Peer* last = nullptr;
        User* next = nullptr;  ///< Who waits after it.
    };

    explicit Turns(std::size_t workers) : workersPerUser_(workers > 1 ? workers - 1 : 1) {}
    Turns(const Turns&) = delete;
    Turns& operator=(const Turns&) = delete;

    /// A peer's place among those of its user, from its beginning to its end.
    User& join(Uid uid);
    void leave(Uid uid);

    /// A worker is about to look for events, and may wait for them when the answer is true: nobody waits whom it
    /// may serve, and it is woken for those who come.
    bool rest();

    struct Turn {
        std::shared_ptr<Peer> peer;  ///< To be served; null when nobody may be.
        bool isMore = false;         ///< Another one may be served, and a worker that rests is to be woken.
    };
    /// A worker has looked. `arrived`: peers that have got something to serve; taken over. `hasRested`: what `rest`
    /// has answered.
    Turn take(std::span<std::shared_ptr<Peer>> arrived, bool hasRested);
    /// The turn is over. `again`: the peer has something left, and waits for its next turn.
    void end(std::shared_ptr<Peer> peer, bool again);

    /// Forgets who waits; for a server that has stopped.
    void clear();

private:
    void enqueue(std::shared_ptr<Peer> peer);
    std::shared_ptr<Peer> dequeue(User& user);
    void append(User& user);
    bool mayServeAny() const;

    const std::size_t workersPerUser_;
    std::mutex mutex_;  // guards all below
    std::map<Uid, User> users_;
    User* first_ = nullptr;  // users with peers that wait, in the order of their turns
    User* last_ = nullptr;
    std::size_t resting_ = 0;
};

}  // namespace ksw::ipc
