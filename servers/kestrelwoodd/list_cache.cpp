#include "servers/kestrelwoodd/list_cache.h"

#include <algorithm>
#include <numeric>
#include <string>

#include "client/values/list_record.h"
#include "platform/archive/keyed_archive.h"
#include "platform/base/limits.h"

namespace ksw::daemon {

namespace {

Result<Data> encode(Uid uid, std::int64_t mask, std::vector<ItemPointer> items) {
    if (items.size() > limits::kListItemsMax) {
        return Error(FormatError::LimitPassed, "user " + std::to_string(uid) + " has " +
                                                   std::to_string(items.size()) +
                                                   " items that match, more than a list may have");
    }
    Result<Data> archive =
        archive::archive(ListRecord{uid, mask, {std::move(items), true}}, archive::Coder::Ordinary);
    if (archive.ok() && archive->size() > limits::kStringMax) {
        return Error(FormatError::LimitPassed, "the list of user " + std::to_string(uid) + " has " +
                                                   std::to_string(archive->size()) +
                                                   " bytes, more than a reply may carry");
    }
    return archive;
}

}  // namespace

Result<ListCache::Archive> ListCache::listOf(Uid uid, std::int64_t mask) {
    const std::shared_ptr<Slot> slot = slotOf(uid, mask);
    const std::lock_guard one(slot->encoding);
    if (slot->archive != nullptr && slot->version == records_.listVersion(uid)) {
        return slot->archive;
    }
    Listing listing = records_.list(uid, static_cast<KSWItemType>(mask));
    Result<Data> archive = encode(uid, mask, std::move(listing.items));
    if (!archive) {
        slot->archive = nullptr;
        return archive.error();
    }
    const std::size_t size = archive->size();
    slot->archive = std::make_shared<const std::optional<Data>>(*std::move(archive));
    slot->version = listing.version;
    remember(*slot, size);
    return slot->archive;
}

std::shared_ptr<ListCache::Slot> ListCache::slotOf(Uid uid, std::int64_t mask) {
    const std::lock_guard lock(mutex_);
    const auto known = std::find_if(slots_.begin(), slots_.end(),
                                    [&](const auto& slot) { return slot->uid == uid && slot->mask == mask; });
    if (known != slots_.end()) {
        slots_.splice(slots_.begin(), slots_, known);
    } else {
        slots_.push_front(std::make_shared<Slot>(uid, mask));
    }
    return slots_.front();
}

void ListCache::remember(Slot& slot, std::size_t size) {
    const std::lock_guard lock(mutex_);
    slot.size = size;
    const auto bytes = [](std::size_t sum, const auto& one) { return sum + one->size; };
    while (!slots_.empty() && (slots_.size() > listsMax_ ||
                               std::accumulate(slots_.begin(), slots_.end(), std::size_t{0}, bytes) > bytesMax_)) {
        slots_.pop_back();
    }
}

void ListCache::forget(Uid uid) {
    const std::lock_guard lock(mutex_);
    slots_.remove_if([uid](const std::shared_ptr<Slot>& slot) { return slot->uid == uid; });
}

}  // namespace ksw::daemon
