// The requests that read and change records as records, whatever their items do.
#include <kestrelwood/KSWErrors.h>

#include "servers/kestrelwoodd/given_item.h"
#include "servers/kestrelwoodd/log.h"
#include "servers/kestrelwoodd/making_answers.h"
#include "servers/kestrelwoodd/operations.h"

namespace ksw::daemon {

template <class Key>
Answer Operations::lookUp(const RecordRequest<std::optional<Key>>& request) const {
    if (!request.thing || request.uid == kNoUser) {
        return failure(KSWErrorInvalidParameter);
    }
    return answerOf(registry_.records().findOwnOrSystems(request.uid, *request.thing));
}

Answer Operations::itemWithIdentifier(const RecordRequest<std::optional<std::string>>& request) {
    return lookUp(request);
}

Answer Operations::itemWithUUID(const RecordRequest<std::optional<UUID>>& request) {
    return lookUp(request);
}

Answer Operations::itemsMatching(const RecordRequest<std::int64_t>& request) {
    if (request.uid == kNoUser) {
        return failure(KSWErrorInvalidParameter);
    }
    Result<ListCache::Archive> list = lists_.listOf(request.uid, request.thing);
    if (!list) {
        logError(list.error().localizedDescription());
        return failure(KSWErrorGeneric);
    }
    Answer answer;
    answer.list = *std::move(list);
    return answer;
}

Answer Operations::add(const RecordRequest<ItemPointer>& request) {
    const ItemPointer& item = request.thing;
    if (item == nullptr || request.uid == kNoUser || !canBeRecorded(*item)) {
        return failure(KSWErrorInvalidParameter);
    }
    const ItemPointer record = newRecordOf(*item);
    readMaker(*record, request.caller);
    return answerOf(registry_.insert(scopeOf(item->type(), request.uid), record, reachOf(request.caller),
                                     applicationAround(*record, request.caller)));
}

Answer Operations::updateItem(const RecordRequest<ItemPointer>& request) {
    return update({request.thing}, request.uid, request.caller);
}

Answer Operations::updateItems(const RecordRequest<std::optional<Data>>& request) {
    std::optional<std::vector<ItemPointer>> items =
        request.thing ? itemsOf(*request.thing) : std::optional<std::vector<ItemPointer>>();
    if (!items) {
        return failure(KSWErrorInvalidParameter);
    }
    Answer answer = update(*items, request.uid, request.caller);
    answer.given = *std::move(items);
    return answer;
}

Answer Operations::update(const std::vector<ItemPointer>& items, Uid uid, const Caller& caller) {
    if (uid == kNoUser || !nameRecords(items)) {
        return failure(KSWErrorInvalidParameter);
    }
    std::vector<GivenUpdate> updates;
    updates.reserve(items.size());
    for (const ItemPointer& item : items) {
        const ItemPointer record = registry_.records().findOwnOrSystems(uid, *item->uuid()).item;
        const std::optional<std::string> code = codeOf(*item);
        const bool isOfOtherCode = record != nullptr && code != codeOf(*record);
        updates.push_back({item, isOfOtherCode ? std::optional(makerOf(code, caller)) : std::nullopt});
    }
    return answerOf(registry_.update(uid, updates, reachOf(caller)));
}

template <class Key>
Answer Operations::removeRecord(const RecordRequest<std::optional<Key>>& request) {
    if (!request.thing || request.uid == kNoUser) {
        return failure(KSWErrorInvalidParameter);
    }
    return answerOf(registry_.removeOwnOrSystems(request.uid, *request.thing, reachOf(request.caller)));
}

Answer Operations::removeWithIdentifier(const RecordRequest<std::optional<std::string>>& request) {
    return removeRecord(request);
}

Answer Operations::removeWithUUID(const RecordRequest<std::optional<UUID>>& request) {
    return removeRecord(request);
}

}  // namespace ksw::daemon
