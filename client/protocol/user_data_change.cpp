#include "client/protocol/user_data_change.h"

namespace ksw::protocol {

namespace {

constexpr std::string_view kUidKey = "uid";
constexpr std::string_view kTypeKey = "type";

std::optional<std::int64_t> numberAt(const Notification& notification, std::string_view key) {
    if (!notification.userInfo) {
        return std::nullopt;
    }
    if (const auto* number = find<std::int64_t>(*notification.userInfo, key)) {
        return *number;
    }
    if (const auto* number = find<std::uint64_t>(*notification.userInfo, key)) {
        return static_cast<std::int64_t>(*number);
    }
    return std::nullopt;
}

}  // namespace

Notification notificationOf(const UserDataChange& change) {
    return {std::string(kUserDataDidChange),
            Dictionary{{std::string(kUidKey), Value(change.uid)}, {std::string(kTypeKey), Value(change.type)}}};
}

std::optional<std::int64_t> saidUid(const Notification& notification) {
    return numberAt(notification, kUidKey);
}

std::optional<std::int64_t> saidType(const Notification& notification) {
    return numberAt(notification, kTypeKey);
}

UserDataChange userDataChangeOf(const Notification& notification) {
    UserDataChange change;
    if (const std::optional<std::int64_t> uid = saidUid(notification)) {
        change.uid = static_cast<Uid>(*uid);
    }
    change.type = saidType(notification).value_or(change.type);
    return change;
}

Notification coalesced(const Notification& older, const Notification& newer) {
    if (newer.name != kUserDataDidChange || older.userInfo == newer.userInfo) {
        return newer;
    }
    const UserDataChange former = userDataChangeOf(older);
    const UserDataChange latter = userDataChangeOf(newer);
    return notificationOf({former.uid == latter.uid ? latter.uid : kEveryUser, former.type | latter.type});
}

}  // namespace ksw::protocol
