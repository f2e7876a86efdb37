// user_data_change.h: what the notification of changed items says.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include <kestrelwood/KSWTypes.h>
#include <kestrelwood/values.h>

namespace ksw::protocol {

/// Whose items changed, and of which types.
struct UserDataChange {
    /// In `type`: items of every type.
    static constexpr std::int64_t kEveryType = 0x40000000;

    Uid uid = kEveryUser;
    std::int64_t type = KSWItemTypeAll;

    friend bool operator==(const UserDataChange&, const UserDataChange&) = default;
};

/// The notification's name; its exported constant stands in KSWManager.h.
inline constexpr std::string_view kUserDataDidChange = "com.velmont.private.kestrelwood.user-data-changed";

Notification notificationOf(const UserDataChange& change);

/// The numbers that a notification has under "uid" and "type"; absent when there is none.
std::optional<std::int64_t> saidUid(const Notification& notification);
std::optional<std::int64_t> saidType(const Notification& notification);

/// What a notification means: without "uid" every user, without "type" every type (4095). A number is taken by its
/// low 32 bits, or 64 for the type; anything else counts as absent.
UserDataChange userDataChangeOf(const Notification& notification);

/// One notification that says what both say: of different users, every user; the types of both. It is at least as
/// wide as each, so that no list that one of them concerns is passed over.
Notification coalesced(const Notification& older, const Notification& newer);

}  // namespace ksw::protocol
