#include <kestrelwood/KSWFetchResult.h>

#include <algorithm>

#include "client/values/fetch_result_fields.h"
#include "model/item/item_archive.h"
#include "platform/archive/keyed_archive.h"
#include "platform/base/limits.h"
#include "platform/host/log.h"

using ksw::FetchResultFields;
using Items = KSWFetchResult::Items;

namespace {

constexpr char kBuilding[] = "-[KSWFetchResult initWithCode:items:]";

/// An item and its containers outward, each once and as many as a reader would take.
Items chainOf(const std::shared_ptr<KSWItem>& item) {
    Items chain{item};
    for (auto next = item->container(); next != nullptr; next = next->container()) {
        const bool isKnown = std::find(chain.begin(), chain.end(), next) != chain.end();
        if (isKnown || chain.size() > ksw::limits::kContainerChainMax) {
            break;
        }
        chain.push_back(next);
    }
    return chain;
}

/// The archive of a chain; an error for one that no reader would take.
ksw::Result<ksw::Data> encode(const Items& chain) {
    if (chain.back()->container() != nullptr) {
        return ksw::Error(ksw::FormatError::LimitPassed, "more than 16 containers, or they lead round in a circle");
    }
    return ksw::archive::archiveArray<KSWItem>(chain, ksw::archive::Coder::Ordinary);
}

void addItem(FetchResultFields& fields, const std::shared_ptr<KSWItem>& item) {
    const auto chain = std::make_shared<const Items>(chainOf(item));
    // Each pointer owns the whole chain, because an item does not own its container.
    for (const auto& one : *chain) {
        Items& place = &one == &chain->front() ? fields.items : fields.containers;
        place.emplace_back(chain, one.get());
    }
    ksw::Result<ksw::Data> archive = encode(*chain);
    if (!archive) {
        ksw::host::mainLog.error("%s: failed to encode item: %{public}@", kBuilding, item);
        ksw::host::mainLog.error("%s: error: %{public}@", kBuilding, archive.error());
        return;
    }
    fields.encodedItems.push_back(*std::move(archive));
}

}  // namespace

KSWFetchResult::KSWFetchResult() : fields_(std::make_unique<FetchResultFields>()) {}

KSWFetchResult::~KSWFetchResult() = default;

std::shared_ptr<KSWFetchResult> KSWFetchResult::initWithCode(std::int64_t code, const Items& items) {
    auto result = std::make_shared<KSWFetchResult>();
    result->fields_->code = code;
    for (const auto& item : items) {
        if (item != nullptr) {
            addItem(*result->fields_, item);
        }
    }
    return result;
}

std::shared_ptr<KSWFetchResult> KSWFetchResult::resultWithCode(std::int64_t code, const Items& items) {
    return initWithCode(code, items);
}

std::shared_ptr<KSWFetchResult> KSWFetchResult::resultWithCode(std::int64_t code,
                                                               const std::shared_ptr<KSWItem>& item) {
    return initWithCode(code, Items{item});
}

std::int64_t KSWFetchResult::code() const {
    return fields_->code;
}
void KSWFetchResult::setCode(std::int64_t code) {
    fields_->code = code;
}
const Items& KSWFetchResult::items() const {
    return fields_->items;
}
void KSWFetchResult::setItems(Items items) {
    fields_->items = std::move(items);
}
const Items& KSWFetchResult::containers() const {
    return fields_->containers;
}
void KSWFetchResult::setContainers(Items containers) {
    fields_->containers = std::move(containers);
}
const std::vector<ksw::Data>& KSWFetchResult::encodedItems() const {
    return fields_->encodedItems;
}
void KSWFetchResult::setEncodedItems(std::vector<ksw::Data> encodedItems) {
    fields_->encodedItems = std::move(encodedItems);
}

std::shared_ptr<KSWItem> KSWFetchResult::firstItem() const {
    return fields_->items.empty() ? nullptr : fields_->items.front();
}
