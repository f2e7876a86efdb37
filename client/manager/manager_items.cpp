// manager_items.cpp: records are added, removed, changed and looked up.

#include <kestrelwood/KSWManager.h>

#include "client/manager/generation.h"
#include "client/manager/manager_state.h"
#include "client/manager/shared_requests.h"
#include "model/item/item_request_copies.h"
#include "platform/archive/keyed_archive.h"

using ksw::Error;
using ksw::Uid;
using ksw::client::RequestActivity;
using ksw::client::Requester;
using ksw::client::sendRequest;
using ksw::host::mainLog;
namespace methods = ksw::protocol::manager;

namespace {

/// Sends the archive. Absent when the daemon has stored the items; also `error` is, when there is no daemon to ask.
bool store(const Requester& requester, const std::optional<ksw::Data>& archive, Uid uid,
           std::optional<Error>& error) {
    bool success = false;
    sendRequest(
        requester, methods::kUpdateItems, [&](const Error& failure) { error = failure; },
        [&](std::int64_t code) {
            success = code == KSWErrorRecordUpdated;
            if (!success) {
                error = KSWErrorWithCode(code);
                mainLog.error("updateItems error: %{public}@ (%ld)", *error, code);
            }
        },
        archive, uid);
    return success;
}

/// As the daemon has raised them.
void raiseGenerations(const ksw::ItemSet& items) {
    for (const auto& item : items) {
        item->setGeneration(ksw::client::nextGeneration(item->generation()));
    }
}

/// Looks a record up. Writes to `errorOut` only when nothing came back.
template <class Method, class Key>
std::shared_ptr<KSWItem> lookUp(const Requester& requester, const Method& method, const Key& key, Uid uid,
                                std::optional<Error>* errorOut) {
    ksw::client::Result result;
    std::optional<Error> error;
    sendRequest(
        requester, method,
        [&](const Error& failure) {
            requester.logConnectionFailure(failure);
            error = failure;
        },
        [&](ksw::client::Result&& answer) { result = std::move(answer); }, key, uid);
    if (result == nullptr && errorOut != nullptr) {
        *errorOut = std::move(error);
    }
    return ksw::client::firstItemOf(result);
}

}  // namespace

bool KSWManager::addItem(const std::shared_ptr<KSWItem>& item, Uid uid, ErrorPlace error) {
    const RequestActivity activity("KSWManager.addItem");
    bool success = false;
    std::optional<Error> failure;
    sendRequest(
        state_->requester, methods::kAddItem, [&](const Error& connectionError) { failure = connectionError; },
        [&](std::int64_t code) {
            success = code == KSWErrorNone || code == KSWErrorRecordExists;
            if (!success) {
                failure = KSWErrorWithCode(code);
            } else if (code == KSWErrorRecordExists) {
                mainLog.info("Existing item found for %@", item == nullptr ? std::nullopt : item->url());
            }
        },
        item, uid);
    if (error != nullptr) {
        *error = std::move(failure);
    }
    return success;
}

bool KSWManager::removeItem(const std::shared_ptr<KSWItem>& item, Uid uid, ErrorPlace error) {
    const RequestActivity activity("KSWManager.removeItem");
    bool success = false;
    std::optional<Error> failure;
    sendRequest(
        state_->requester, methods::kRemoveItemWithUUID,
        [&](const Error& connectionError) { failure = connectionError; },
        [&](std::optional<Error>&& answer) {
            success = !answer.has_value();
            failure = std::move(answer);
        },
        item == nullptr ? std::nullopt : item->uuid(), uid);
    if (!success) {
        mainLog.error("removeItem: error=%{public}@", failure);
        if (error != nullptr) {
            *error = std::move(failure);
        }
    }
    return true;
}

bool KSWManager::updateItem(const std::shared_ptr<KSWItem>& item, Uid uid, ErrorPlace error) {
    const RequestActivity activity("KSWManager.updateItem");
    return updateItems(ksw::ItemSet::of({item}), uid, error);
}

bool KSWManager::updateItems(const ksw::ItemSet::Pointer& items, Uid uid, ErrorPlace error) {
    const RequestActivity activity("KSWManager.updateItems");
    const ksw::ItemSet::Pointer changed = items == nullptr ? ksw::ItemSet::of({}) : items;
    bool success = false;
    std::optional<Error> failure;
    // The items with what belongs to them, as the daemon reads them.
    const ksw::ItemCopies copies = ksw::copiesForRequest(*changed);
    ksw::Result<ksw::Data> archive =
        ksw::archive::archiveArray<KSWItem>(copies.items, ksw::archive::Coder::Ordinary);
    if (archive) {
        success = store(state_->requester, *std::move(archive), uid, failure);
    } else {
        failure = archive.error();
        mainLog.error("failed archiving changedItems: %{public}@, error: %{public}@", *changed, *failure);
    }
    if (success) {
        raiseGenerations(*changed);
    } else if (error != nullptr) {
        *error = std::move(failure);
    }
    return success;
}

std::shared_ptr<KSWItem> KSWManager::getItemWithIdentifier(const std::optional<std::string>& identifier, Uid uid,
                                                           ErrorPlace error) {
    const RequestActivity activity("KSWManager.getItemWithIdentifier");
    return lookUp(state_->requester, methods::kGetItemWithIdentifier, identifier, uid, error);
}

std::shared_ptr<KSWItem> KSWManager::fetchItemWithUUID(const std::optional<ksw::UUID>& uuid, Uid uid,
                                                       ErrorPlace error) {
    const RequestActivity activity("KSWManager.fetchItemWithUUID");
    return lookUp(state_->requester, methods::kGetItemWithUUID, uuid, uid, error);
}
