// quota.h: what each user holds of a server: connections and bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>

#include <kestrelwood/values/audit_token.h>

namespace ksw::ipc {

class Quotas;

/// Bytes held on a user's behalf, given back by the destructor. One thread at a time.
class Charge {
public:
    /// Charges nobody: everything is granted. For the bytes that a client holds for itself.
    Charge() = default;
    Charge(Quotas& quotas, Uid uid) : quotas_(&quotas), uid_(uid) {}
    Charge(Charge&& other) noexcept;
    Charge& operator=(Charge&&) = delete;
    Charge(const Charge&) = delete;
    Charge& operator=(const Charge&) = delete;
    ~Charge() { resize(0); }

    /// Makes the charge `bytes` large, before they are allocated. False when the user's share does not allow it;
    /// then the charge is as before. Making it smaller always succeeds.
    [[nodiscard]] bool tryResize(std::size_t bytes);
    /// Makes it smaller.
    void resize(std::size_t bytes);
    std::size_t bytes() const { return bytes_; }

private:
    Quotas* quotas_ = nullptr;
    Uid uid_ = 0;
    std::size_t bytes_ = 0;
};

/// The bounds of one server's users. Safe from any thread.
///
/// A user may hold `bytesPerUid`, and never more than 1/(n+1) of what the other n users leave of `bytesHeld`, so
/// that one more user always finds something left.
class Quotas {
public:
    struct Bounds {
        std::size_t connections;
        std::size_t connectionsPerUid;
        std::size_t connectionsReservedForRoot;
        std::size_t bytesPerUid;
        std::size_t bytesHeld;
    };

    explicit Quotas(const Bounds& bounds) : bounds_(bounds) {}

    /// Whether no connection at all is left, so that accepting would be in vain.
    bool isFull() const;
    std::size_t connections() const;
    /// Counts a connection of a user; false when none is left for it.
    [[nodiscard]] bool tryConnect(Uid uid);
    void disconnect(Uid uid);

    /// How often something was denied.
    std::uint64_t hits() const;

private:
    friend class Charge;

    struct User {
        std::size_t connections = 0;
        std::size_t bytes = 0;
    };

    bool tryHold(Uid uid, std::size_t bytes);
    void release(Uid uid, std::size_t bytes);
    void forgetIfIdle(std::map<Uid, User>::iterator user);

    const Bounds bounds_;
    mutable std::mutex mutex_;  // guards all below
    std::map<Uid, User> users_;
    std::size_t connections_ = 0;
    std::size_t bytes_ = 0;
    std::uint64_t hits_ = 0;
};

}  // namespace ksw::ipc
