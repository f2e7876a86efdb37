// application_registry.h: which applications a user has, and which one is meant by an identifier.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include <kestrelwood/values/audit_token.h>

#include "platform/facts/application.h"
#include "platform/host/clock.h"
#include "platform/host/fork_guarded.h"

namespace ksw::facts {

/// Whether an application counts that is not there wholly.
enum class Placeholders : std::uint8_t { LeftOut, Included };

/// The applications in `/Applications`, `/opt` and `/usr/local/Applications`, which belong to everybody, and those
/// in a user's `~/Applications`. Each of the two is read when it is first asked for, kept in memory, and read again
/// when a folder or file of it has changed. Whether one has is looked at once a second at most, so an answer is
/// that old at most, and takes no system call in between; for an identifier that nobody has, 20 times a second. Any
/// thread, also of a child that was forked while another one was reading; blocks for the reading, which holds up
/// those who ask for the same user's, or everybody's.
class ApplicationRegistry {
public:
    explicit ApplicationRegistry(const host::Clock& clock = host::systemClock()) : clock_(clock) {}
    ApplicationRegistry(const ApplicationRegistry&) = delete;
    ApplicationRegistry& operator=(const ApplicationRegistry&) = delete;

    /// The process's own.
    static ApplicationRegistry& shared();

    /// The application of this identifier that the user has; null when there is none. Of several: a whole one
    /// before a placeholder, everybody's before the user's, in the order of the folders above; then the one less
    /// deep, then by the bytes of the path. For 4294967294, which is every user, everybody's alone count.
    ApplicationPointer find(std::string_view identifier, Uid uid,
                            Placeholders placeholders = Placeholders::LeftOut);

    /// All of them, placeholders too, in that order but for the placeholders.
    std::vector<ApplicationPointer> all(Uid uid);

private:
    class Shelf;
    using ShelfPointer = std::shared_ptr<Shelf>;

    struct Shelves {
        ShelfPointer everybodys;
        ShelfPointer users;  // null for every user
    };
    Shelves shelvesOf(Uid uid);
    ShelfPointer shelfOf(std::map<Uid, ShelfPointer>& shelves, Uid uid) const;

    const host::Clock& clock_;
    host::ForkGuarded<std::map<Uid, ShelfPointer>> shelves_;  // everybody's under kEveryUser
};

}  // namespace ksw::facts
