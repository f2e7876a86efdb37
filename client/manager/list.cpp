// list.cpp: what a list holds, and how it changes.

#include <kestrelwood/KSWList.h>

#include <array>
#include <atomic>
#include <functional>
#include <stdexcept>

#include <unistd.h>

#include <kestrelwood/KSWManager.h>

#include "client/manager/refresh_turns.h"
#include "client/manager/request_frame.h"
#include "client/values/list_record.h"
#include "platform/archive/keyed_archive.h"
#include "platform/host/fork_guarded.h"
#include "platform/host/log.h"

using ksw::client::RefreshOutcome;
using ksw::client::RequestActivity;
using ksw::host::mainLog;
using Items = KSWList::Items;

namespace {

/// What a list shows; replaced whole.
struct Content {
    Items items;
    Items containers;
};
using ContentPointer = std::shared_ptr<const Content>;

/// Every container of the items once, in the order met. The items of a container mostly stand near each other, so
/// a small memory of addresses spares nearly all of them the search among the containers.
Items containersOf(const Items& items) {
    std::array<const KSWItem*, 256> known{};
    Items met;
    for (const auto& item : items) {
        std::shared_ptr<KSWItem> container = item->container();
        if (container == nullptr) {
            continue;
        }
        const KSWItem*& place = known[reinterpret_cast<std::uintptr_t>(container.get()) / 64 % known.size()];
        if (place != container.get()) {
            place = container.get();
            met.push_back(std::move(container));
        }
    }
    const ksw::ItemSet::Pointer containers = ksw::ItemSet::of(met);
    return {containers->begin(), containers->end()};
}

ContentPointer contentOf(Items items) {
    std::erase(items, nullptr);
    Items containers = containersOf(items);
    return std::make_shared<const Content>(Content{std::move(items), std::move(containers)});
}

/// The same of items that came out of an archive: each pointer owns all that came with it.
ContentPointer contentOf(const ksw::archive::Unarchived<ksw::ListRecord>& archive) {
    const auto& decoded = archive.root->items.items;
    Content content;
    content.items.reserve(decoded.size());
    for (const auto& item : decoded) {
        content.items.push_back(archive.owned(item));
    }
    for (const auto& container : containersOf(decoded)) {
        content.containers.push_back(archive.owned(container));
    }
    return std::make_shared<const Content>(std::move(content));
}

/// An observer in the log: it has no text of its own.
struct ObserverText {
    const KSWListObserver* observer;
    std::string description() const {
        return ksw::format("<KSWListObserver %p>", static_cast<const void*>(observer));
    }
};

void logObserver(ksw::Literal operation, const KSWListObserver* observer) {
    mainLog.debug("%s: observer=%@", operation, ObserverText{observer});
}

}  // namespace

struct KSWList::State {
    State(ContentPointer shown, ksw::Uid user, std::int64_t mask, std::shared_ptr<KSWManager> owner)
        : type(mask), manager(std::move(owner)), uid(user), content(std::move(shown)) {}

    // Constant after construction.
    const std::int64_t type;
    const std::shared_ptr<KSWManager> manager;

    std::atomic<ksw::Uid> uid;
    /// What goes with a former content goes with no lock held: it may be the last to know its items.
    ksw::host::Replaceable<Content> content;
    ksw::client::RefreshTurns turns;
    ksw::host::ForkGuarded<Observers> observers;
};

KSWListObserver::~KSWListObserver() = default;

KSWList::KSWList(std::unique_ptr<State> state) : state_(std::move(state)) {}

KSWList::~KSWList() = default;

std::shared_ptr<KSWList> KSWList::init() {
    return initWithItems({}, ::getuid(), static_cast<std::int64_t>(KSWItemTypeAll));
}

std::shared_ptr<KSWList> KSWList::initWithItems(const Items& items, ksw::Uid uid, std::int64_t type) {
    return initWithItems(items, uid, type, KSWManager::shared().shared_from_this());
}

std::shared_ptr<KSWList> KSWList::initWithItems(const Items& items, ksw::Uid uid, std::int64_t type,
                                                std::shared_ptr<KSWManager> manager) {
    return std::shared_ptr<KSWList>(
        new KSWList(std::make_unique<State>(contentOf(items), uid, type, std::move(manager))));
}

std::shared_ptr<KSWList> KSWList::initWithCoder(ksw::Bytes archive, std::optional<ksw::Error>* error) {
    ksw::archive::DecodeBudget budget(archive.size());
    const ksw::archive::ReadOptions options{.cycles = ksw::archive::Cycles::Allowed};
    const auto decoded = ksw::archive::unarchive<ksw::ListRecord>(archive, options, budget);
    if (!decoded) {
        if (error != nullptr) {
            *error = decoded.error();
        }
        return nullptr;
    }
    const ksw::ListRecord& record = *decoded->root;
    return std::shared_ptr<KSWList>(new KSWList(std::make_unique<State>(
        contentOf(*decoded), record.uid, record.type, KSWManager::shared().shared_from_this())));
}

std::optional<ksw::Data> KSWList::encodeWithCoder(std::optional<ksw::Error>* error) const {
    const ksw::ListRecord record{uid(), type(), {items(), true}};
    ksw::Result<ksw::Data> archive = ksw::archive::archive(record, ksw::archive::Coder::Ordinary);
    if (!archive) {
        if (error != nullptr) {
            *error = archive.error();
        }
        return std::nullopt;
    }
    return *std::move(archive);
}

ksw::Uid KSWList::uid() const {
    return state_->uid;
}
void KSWList::setUid(ksw::Uid uid) {
    state_->uid = uid;
}
std::int64_t KSWList::type() const {
    return state_->type;
}
Items KSWList::items() const {
    return state_->content.get()->items;
}
void KSWList::setItems(Items items) {
    state_->content.set(contentOf(std::move(items)));
}
Items KSWList::containers() const {
    return state_->content.get()->containers;
}
const KSWList::Observers& KSWList::observers() const {
    return *state_->observers.lock();
}

std::size_t KSWList::count() const {
    return state_->content.get()->items.size();
}

std::shared_ptr<KSWItem> KSWList::itemAtIndex(std::size_t index) const {
    const ContentPointer content = state_->content.get();
    if (index >= content->items.size()) {
        throw std::out_of_range(ksw::format("%s: index %lu beyond count %lu",
                                            ksw::Literal{"-[KSWList itemAtIndex:]"}, index, content->items.size()));
    }
    return content->items[index];
}

std::optional<std::size_t> KSWList::indexOfItem(const std::shared_ptr<const KSWItem>& item) const {
    const ContentPointer content = state_->content.get();
    for (std::size_t index = 0; index < content->items.size(); ++index) {
        if (content->items[index]->isEqual(item)) {
            return index;
        }
    }
    return std::nullopt;
}

bool KSWList::containsItem(const std::shared_ptr<const KSWItem>& item) const {
    return indexOfItem(item).has_value();
}

std::string KSWList::description() const {
    return ksw::format("<%@ %p> uid=%d type=%@, count=%ld", "KSWList", static_cast<const void*>(this),
                       static_cast<std::int32_t>(uid()), KSWItemTypeDescription(static_cast<KSWItemType>(type())),
                       count());
}

bool KSWList::addItem(const std::shared_ptr<KSWItem>& item, std::optional<ksw::Error>* error) {
    const RequestActivity activity("KSWList.addItem");
    return state_->manager != nullptr && state_->manager->addItem(item, uid(), error);
}

bool KSWList::removeItem(const std::shared_ptr<KSWItem>& item, std::optional<ksw::Error>* error) {
    const RequestActivity activity("KSWList.removeItem");
    return state_->manager != nullptr && state_->manager->removeItem(item, uid(), error);
}

bool KSWList::updateItem(const std::shared_ptr<KSWItem>& item, std::optional<ksw::Error>* error) {
    const RequestActivity activity("KSWList.updateItem");
    return state_->manager != nullptr && state_->manager->updateItem(item, uid(), error);
}

bool KSWList::updateItems(const ksw::ItemSet::Pointer& items, std::optional<ksw::Error>* error) {
    const RequestActivity activity("KSWList.updateItems");
    return state_->manager != nullptr && state_->manager->updateItems(items, uid(), error);
}

bool KSWList::refresh() {
    std::optional<ksw::Error> error;
    const bool success = refreshWithError(&error);
    if (!success) {
        mainLog.error("%{public}@: refresh error: %{public}@", *this, error);
    }
    return success;
}

bool KSWList::refreshWithError(std::optional<ksw::Error>* error) {
    const RequestActivity activity("KSWList.refresh");
    const RefreshOutcome outcome = state_->turns.run([this] {
        RefreshOutcome ended;
        std::shared_ptr<KSWList> fresh;
        if (state_->manager != nullptr) {
            fresh = state_->manager->_getItemsMatching(type(), uid(), &ended.error);
        }
        ended.hasList = fresh != nullptr;
        if (ended.hasList) {
            state_->content.set(fresh->state_->content.get());
        }
        return ended;
    });
    if (!outcome.hasList && error != nullptr) {
        *error = outcome.error;
    }
    return !outcome.error.has_value();
}

void KSWList::addListObserver(const std::shared_ptr<KSWListObserver>& observer) {
    if (observer == nullptr) {
        return;
    }
    const auto observers = state_->observers.lock();
    logObserver(ksw::Literal{"-[KSWList addListObserver:]"}, observer.get());
    observers->insert(observer);
}

void KSWList::removeListObserver(const std::shared_ptr<KSWListObserver>& observer) {
    if (observer == nullptr) {
        return;
    }
    // Goes after the lock: an observer may do anything while it is destroyed.
    Observers::node_type removed;
    const auto observers = state_->observers.lock();
    logObserver(ksw::Literal{"-[KSWList removeListObserver:]"}, observer.get());
    removed = observers->extract(observer);
}

std::vector<std::shared_ptr<KSWListObserver>> KSWList::currentObservers() const {
    const auto observers = state_->observers.lock();
    return {observers->begin(), observers->end()};
}
