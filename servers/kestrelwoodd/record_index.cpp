#include "servers/kestrelwoodd/record_index.h"

#include <algorithm>
#include <mutex>
#include <shared_mutex>

namespace ksw::daemon {

Found RecordIndex::find(Uid uid, std::string_view identifier) const {
    const std::shared_lock lock(mutex_);
    const auto user = users_.find(uid);
    if (user == users_.end()) {
        return {};
    }
    const Records& records = user->second;
    if (const auto found = records.byIdentifier.find(identifier); found != records.byIdentifier.end()) {
        return {found->second.item, false, uid, found->second.judgement};
    }
    return {nullptr, !records.damaged.empty() && records.damaged.contains(identifier), uid};
}

Found RecordIndex::find(Uid uid, const UUID& uuid) const {
    const std::shared_lock lock(mutex_);
    const auto user = users_.find(uid);
    if (user == users_.end()) {
        return {};
    }
    const auto found = user->second.byUuid.find(uuid);
    return {found == user->second.byUuid.end() ? nullptr : found->second, false, uid};
}

Found RecordIndex::findByURL(Uid uid, KSWItemType baseKind, const URL& url) const {
    const std::shared_lock lock(mutex_);
    const auto user = users_.find(uid);
    if (user == users_.end()) {
        return {};
    }
    for (const auto& [identifier, published] : user->second.byIdentifier) {
        if ((published.item->type() & KSWItemTypeAll) == baseKind && published.item->url() == url) {
            return {published.item, false, uid, published.judgement};
        }
    }
    return {};
}

std::vector<std::pair<Uid, std::string>> RecordIndex::users() const {
    std::vector<std::pair<Uid, std::string>> users;
    {
        const std::shared_lock lock(mutex_);
        for (const auto& [uid, records] : users_) {
            if (!records.byIdentifier.empty() || !records.damaged.empty()) {
                users.emplace_back(uid, records.userIdentifier);
            }
        }
    }
    std::sort(users.begin(), users.end());
    return users;
}

std::optional<std::string> RecordIndex::userIdentifier(Uid uid) const {
    const std::shared_lock lock(mutex_);
    const auto user = users_.find(uid);
    return user == users_.end() ? std::nullopt : std::optional(user->second.userIdentifier);
}

bool RecordIndex::isTaken(std::string_view userIdentifier) const {
    const std::shared_lock lock(mutex_);
    return std::any_of(users_.begin(), users_.end(),
                       [&](const auto& user) { return user.second.userIdentifier == userIdentifier; });
}

void RecordIndex::nameUser(Uid uid, std::string userIdentifier) {
    const std::unique_lock lock(mutex_);
    users_[uid].userIdentifier = std::move(userIdentifier);
}

void RecordIndex::publish(const Publication& publication) {
    const std::unique_lock lock(mutex_);
    Records& records = users_[publication.uid];
    for (const auto& [identifier, uuid] : publication.dropped) {
        records.byIdentifier.erase(identifier);
        records.byUuid.erase(uuid);
    }
    if (publication.root != nullptr) {
        forEachOf(publication.root, [&](const ItemPointer& item) {
            records.byIdentifier.insert_or_assign(*item->identifier(),
                                                  Published{item, std::make_shared<Judgement>()});
            records.byUuid.insert_or_assign(*item->uuid(), item);
        });
    }
}

void RecordIndex::setDamaged(Uid uid, std::string identifier) {
    const std::unique_lock lock(mutex_);
    users_[uid].damaged.insert(std::move(identifier));
}

void RecordIndex::forgetDamaged(Uid uid, const std::string& identifier) {
    const std::unique_lock lock(mutex_);
    users_[uid].damaged.erase(identifier);
}

}  // namespace ksw::daemon
