#include "servers/kestrelwoodd/record_index.h"

#include <algorithm>
#include <mutex>
#include <shared_mutex>

namespace ksw::daemon {

const RecordIndex::Records* RecordIndex::recordsOf(Uid uid) const {
    const auto user = users_.find(uid);
    return user == users_.end() ? nullptr : &user->second;
}

Found RecordIndex::find(Uid uid, std::string_view identifier) const {
    const std::shared_lock lock(mutex_);
    const Records* records = recordsOf(uid);
    if (records == nullptr) {
        return {};
    }
    if (const auto found = records->byIdentifier.find(identifier); found != records->byIdentifier.end()) {
        return {found->second.item, false, uid, found->second.judgement};
    }
    if (!records->damaged.empty() && records->damaged.contains(identifier)) {
        return {nullptr, true, uid, nullptr, std::string(identifier)};
    }
    return {};
}

Found RecordIndex::find(Uid uid, const UUID& uuid) const {
    const std::shared_lock lock(mutex_);
    const Records* records = recordsOf(uid);
    if (records == nullptr) {
        return {};
    }
    if (const auto found = records->byUuid.find(uuid); found != records->byUuid.end()) {
        return {found->second, false, uid};
    }
    const auto damaged = std::find_if(records->damaged.begin(), records->damaged.end(),
                                      [&uuid](const auto& record) { return record.second == uuid; });
    if (damaged != records->damaged.end()) {
        return {nullptr, true, uid, nullptr, damaged->first};
    }
    return {};
}

Found RecordIndex::findByURL(Uid uid, KSWItemType baseKind, const URL& url) const {
    const std::shared_lock lock(mutex_);
    const Records* records = recordsOf(uid);
    if (records == nullptr) {
        return {};
    }
    for (const auto& [identifier, published] : records->byIdentifier) {
        if ((published.item->type() & KSWItemTypeAll) == baseKind && published.item->url() == url) {
            return {published.item, false, uid, published.judgement};
        }
    }
    return {};
}

RecordIndex::Placed RecordIndex::matching(Uid uid, KSWItemType mask) const {
    Placed matching;
    if (const Records* records = recordsOf(uid)) {
        for (const auto& [identifier, published] : records->byIdentifier) {
            if ((published.item->type() & mask & KSWItemTypeAll) != 0) {
                matching.emplace_back(published.place, published.item);
            }
        }
    }
    return matching;
}

ListVersion RecordIndex::versionOf(Uid uid) const {
    const auto version = [this](Uid of) {
        const Records* records = recordsOf(of);
        return records == nullptr ? 0 : records->version;
    };
    return {version(uid), version(kEveryUser)};
}

Listing RecordIndex::list(Uid uid, KSWItemType mask) const {
    Listing listing;
    Placed own;
    Placed systems;
    {
        const std::shared_lock lock(mutex_);
        listing.version = versionOf(uid);
        systems = matching(kEveryUser, mask);
        if (uid != kEveryUser) {
            own = matching(uid, mask);
        }
    }
    listing.items.reserve(own.size() + systems.size());
    for (Placed* part : {&own, &systems}) {
        for (ItemPointer& item : arranged(std::move(*part))) {
            listing.items.push_back(std::move(item));
        }
    }
    return listing;
}

std::vector<ItemPointer> RecordIndex::arranged(Placed placed) {
    std::sort(placed.begin(), placed.end(),
              [](const auto& left, const auto& right) { return left.first < right.first; });
    std::vector<ItemPointer> items;
    items.reserve(placed.size());
    for (auto& [place, item] : placed) {
        items.push_back(std::move(item));
    }
    return items;
}

std::vector<ItemPointer> RecordIndex::own(Uid uid) const {
    Placed placed;
    {
        const std::shared_lock lock(mutex_);
        placed = matching(uid, KSWItemTypeAll);
    }
    return arranged(std::move(placed));
}

std::vector<std::string> RecordIndex::damaged(Uid uid) const {
    std::vector<std::string> identifiers;
    const std::shared_lock lock(mutex_);
    if (const Records* records = recordsOf(uid)) {
        for (const auto& [identifier, uuid] : records->damaged) {
            identifiers.push_back(identifier);
        }
    }
    return identifiers;
}

ListVersion RecordIndex::listVersion(Uid uid) const {
    const std::shared_lock lock(mutex_);
    return versionOf(uid);
}

bool RecordIndex::hasRecord(const UUID& uuid) const {
    const std::shared_lock lock(mutex_);
    return std::any_of(users_.begin(), users_.end(), [&uuid](const auto& user) {
        const Records& records = user.second;
        return records.byUuid.contains(uuid) ||
               std::any_of(records.damaged.begin(), records.damaged.end(),
                           [&uuid](const auto& damaged) { return damaged.second == uuid; });
    });
}

bool RecordIndex::hasDamagedBeside(Uid uid, const std::string& identifier) const {
    const std::shared_lock lock(mutex_);
    const Records* records = recordsOf(uid);
    return records != nullptr && records->damaged.size() > records->damaged.count(identifier);
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
    const bool isNamed = user != users_.end() && !user->second.userIdentifier.empty();
    return isNamed ? std::optional(user->second.userIdentifier) : std::nullopt;
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

std::vector<ItemPointer> RecordIndex::publish(const std::vector<Publication>& publications) {
    std::vector<ItemPointer> former;
    const std::unique_lock lock(mutex_);
    for (const Publication& publication : publications) {
        Records& records = users_[publication.uid];
        ++records.version;
        for (const auto& [identifier, uuid] : publication.dropped) {
            records.byIdentifier.erase(identifier);
            records.byUuid.erase(uuid);
        }
        if (publication.root == nullptr) {
            continue;
        }
        if (const auto root = records.byUuid.find(*publication.root->uuid()); root != records.byUuid.end()) {
            former.push_back(root->second);
        }
        forEachOf(publication.root, [&](const ItemPointer& item) {
            const auto [published, isNew] = records.byIdentifier.try_emplace(*item->identifier());
            if (isNew) {
                published->second.place = records.nextPlace++;
            }
            published->second.item = item;
            published->second.judgement = std::make_shared<Judgement>();
            records.byUuid.insert_or_assign(*item->uuid(), item);
        });
    }
    return former;
}

void RecordIndex::arrange(Uid uid, const std::vector<std::string_view>& identifiers) {
    const std::unique_lock lock(mutex_);
    Records& records = users_[uid];
    for (const std::string_view identifier : identifiers) {
        if (const auto found = records.byIdentifier.find(identifier); found != records.byIdentifier.end()) {
            found->second.place = records.nextPlace++;
        }
    }
}

void RecordIndex::setDamaged(Uid uid, std::string identifier, const UUID& uuid) {
    const std::unique_lock lock(mutex_);
    users_[uid].damaged.insert_or_assign(std::move(identifier), uuid);
}

void RecordIndex::forgetDamaged(Uid uid, const std::string& identifier) {
    const std::unique_lock lock(mutex_);
    users_[uid].damaged.erase(identifier);
}

void RecordIndex::clear() {
    std::vector<Records> former;
    const std::unique_lock lock(mutex_);
    former.reserve(users_.size());
    for (auto& [uid, records] : users_) {
        Records empty;
        empty.nextPlace = records.nextPlace;
        empty.version = records.version + 1;
        former.push_back(std::exchange(records, std::move(empty)));
    }
}

}  // namespace ksw::daemon
