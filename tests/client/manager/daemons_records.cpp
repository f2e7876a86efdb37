// What the scripted daemon answers about records.

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWFetchResult.h>

#include "client/values/list_record.h"
#include "platform/archive/keyed_archive.h"
#include "tests/client/manager/daemons.h"

namespace ksw::test {

namespace {

namespace methods = protocol::manager;
using Item = std::shared_ptr<KSWItem>;
using Items = std::vector<Item>;
using CodeResponder = ipc::Responder<std::int64_t>;
using ResultResponder = ipc::Responder<std::shared_ptr<KSWFetchResult>>;

std::shared_ptr<KSWFetchResult> resultOf(const Item& item) {
    return KSWFetchResult::resultWithCode(item == nullptr ? KSWErrorRecordNotFound : KSWErrorNone, item);
}

/// A record of its own, of the generation given.
Item recordOf(const KSWItem& item, std::int64_t generation) {
    Item record = item.copy();
    record->setGeneration(generation);
    record->setContainer(nullptr);
    return record;
}

std::optional<Items> itemsIn(const std::optional<Data>& archive) {
    if (!archive) {
        return std::nullopt;
    }
    archive::DecodeBudget budget(archive->size());
    auto items = archive::unarchiveArray<KSWItem>(*archive, {.cycles = archive::Cycles::Allowed}, budget);
    return items ? std::optional(std::move(items->roots)) : std::nullopt;
}

}  // namespace

Item ScriptDaemon::withUUID(const std::optional<UUID>& uuid) const {
    for (const auto& [identifier, record] : records_) {
        if (record->uuid() == uuid) {
            return record;
        }
    }
    return nullptr;
}

std::int64_t ScriptDaemon::add(const Item& item) {
    if (item == nullptr || !item->identifier()) {
        return KSWErrorInvalidParameter;
    }
    const std::lock_guard lock(mutex_);
    const bool isNew = records_.emplace(*item->identifier(), recordOf(*item, 0)).second;
    return isNew ? KSWErrorNone : KSWErrorRecordExists;
}

std::int64_t ScriptDaemon::update(const Items& items) {
    const std::lock_guard lock(mutex_);
    for (const Item& item : items) {
        const Item record = withUUID(item->uuid());
        if (record == nullptr) {
            return KSWErrorRecordNotFound;
        }
        if (record->generation() != item->generation()) {
            return KSWErrorInvalidGeneration;
        }
    }
    for (const Item& item : items) {
        records_[item->identifier().value()] = recordOf(*item, item->generation() + 1);
    }
    return KSWErrorRecordUpdated;
}

void ScriptDaemon::serveLookups(ipc::Dispatcher& dispatcher) {
    dispatcher.on(methods::kGetItemWithIdentifier, [this](const ipc::RequestContext&, ResultResponder responder,
                                                          const std::optional<std::string>& identifier, Uid) {
        const std::lock_guard lock(mutex_);
        const auto found = records_.find(identifier.value_or(""));
        responder.answer(resultOf(found == records_.end() ? nullptr : found->second));
    });
    dispatcher.on(methods::kGetItemWithUUID, [this](const ipc::RequestContext&, ResultResponder responder,
                                                    const std::optional<UUID>& uuid, Uid) {
        const std::lock_guard lock(mutex_);
        responder.answer(resultOf(withUUID(uuid)));
    });
    dispatcher.on(
        methods::kGetItemsMatching,
        [this](const ipc::RequestContext&, ipc::Responder<std::optional<Data>, std::optional<Error>> responder,
               std::int64_t type, Uid uid) {
            ListRecord list{uid, type, {{}, true}};
            const std::lock_guard lock(mutex_);
            for (const auto& [identifier, record] : records_) {
                if (record->intersectsType(static_cast<KSWItemType>(type))) {
                    list.items.items.push_back(record);
                }
            }
            responder.answer(*archive::archive(list, archive::Coder::Ordinary), std::nullopt);
        });
}

void ScriptDaemon::serveChanges(ipc::Dispatcher& dispatcher) {
    dispatcher.on(methods::kAddItem, [this](const ipc::RequestContext&, CodeResponder responder, const Item& item,
                                            Uid) { responder.answer(add(item)); });
    dispatcher.on(methods::kUpdateItem, [this](const ipc::RequestContext&, CodeResponder responder,
                                               const Item& item, Uid) { responder.answer(update({item})); });
    dispatcher.on(methods::kUpdateItems, [this](const ipc::RequestContext&, CodeResponder responder,
                                                const std::optional<Data>& archive, Uid) {
        const std::optional<Items> items = itemsIn(archive);
        responder.answer(items ? update(*items) : KSWErrorInvalidParameter);
    });
    dispatcher.on(methods::kRemoveItemWithUUID,
                  [this](const ipc::RequestContext&, ipc::Responder<std::optional<Error>> responder,
                         const std::optional<UUID>& uuid, Uid) {
                      const std::lock_guard lock(mutex_);
                      const Item record = withUUID(uuid);
                      if (record == nullptr) {
                          responder.answer(KSWErrorWithCode(KSWErrorRecordNotFound));
                          return;
                      }
                      records_.erase(*record->identifier());
                      responder.answer(std::nullopt);
                  });
}

}  // namespace ksw::test
