#include "servers/kestrelwoodagent/background_items.h"

#include <algorithm>
#include <utility>

#include "client/protocol/manager_service.h"
#include "client/protocol/services.h"
#include "client/values/list_record.h"
#include "model/item/item_request_copies.h"
#include "platform/archive/keyed_archive.h"
#include "servers/kestrelwoodagent/errors.h"
#include "servers/kestrelwoodagent/shown_item.h"

namespace ksw::agentserver {

namespace {

namespace manager = protocol::manager;
using Items = std::vector<KSWItem::Pointer>;

/// Developers' records group items and are none.
constexpr auto kListed = static_cast<std::int64_t>(KSWItemTypeAll & ~KSWItemTypeDeveloper);

/// Each loss means that somebody else's change went through, so losing so often in a row takes a flood of them.
constexpr int kAttempts = 16;

/// The items of the daemon's reply; each owns all that came with it.
Result<Items> itemsOf(const std::optional<Data>& archive, const protocol::MaybeError& error) {
    if (!archive) {
        return error ? *error : KSWErrorWithCode(KSWErrorGeneric);
    }
    archive::DecodeBudget budget(archive->size());
    const auto list = archive::unarchive<ListRecord>(*archive, {.cycles = archive::Cycles::Allowed}, budget);
    if (!list) {
        return list.error();
    }
    Items items;
    for (const KSWItem::Pointer& item : list->root->items.items) {
        items.push_back(list->owned(item));
    }
    return items;
}

/// Absent for what is no election.
std::optional<bool> allowedBy(std::int64_t election) {
    if (election != KSWUserElectionAllowed && election != KSWUserElectionDisallowed) {
        return std::nullopt;
    }
    return election == KSWUserElectionAllowed;
}

}  // namespace

BackgroundItems::BackgroundItems(Uid user)
    : user_(user),
      daemon_(std::string(kManagerService), ipc::managementDaemonOptions(), GetManagerServiceInterface()) {}

void BackgroundItems::list(const FoundReply& reply) {
    daemon_.callAsync(
        manager::kGetItemsMatching,
        [reply](auto answer) {
            reply(answer ? itemsOf(std::get<0>(*answer), std::get<1>(*answer)) : Result<Items>(answer.error()));
        },
        kListed, user_);
}

void BackgroundItems::fetch(const ItemsReply& reply) {
    list([reply](const Result<Items>& items) {
        if (!items) {
            reply(std::nullopt, items.error());
            return;
        }
        protocol::agent::BackgroundItems shown;
        shown.emplace().reserve(items->size());
        for (const KSWItem::Pointer& item : *items) {
            shown->push_back(shownItem(*item));
        }
        reply(std::move(shown), std::nullopt);
    });
}

void BackgroundItems::elect(std::int64_t election, const std::optional<UUID>& identifier,
                            const ElectionReply& reply) {
    const std::optional<bool> isAllowed = allowedBy(election);
    if (!isAllowed || !identifier) {
        reply(wrongParameter(isAllowed ? "no item's identifier" : "an election is 1 to allow or 2 to disallow"),
              false);
        return;
    }
    decide([this, identifier](const FoundReply& found) { findByIdentifier(*identifier, found); }, *isAllowed, 1,
           reply);
}

void BackgroundItems::elect(std::int64_t election, const std::optional<URL>& url, const ElectionReply& reply) {
    const std::optional<bool> isAllowed = allowedBy(election);
    if (!isAllowed || !url || !url->isFileURL()) {
        reply(wrongParameter(isAllowed ? "no file's URL" : "an election is 1 to allow or 2 to disallow"), false);
        return;
    }
    decide([this, url](const FoundReply& found) { findByURL(*url, found); }, *isAllowed, 1, reply);
}

void BackgroundItems::findByIdentifier(const UUID& identifier, const FoundReply& reply) {
    daemon_.callAsync(
        manager::kGetItemWithUUID,
        [reply](auto answer) {
            if (!answer) {
                reply(answer.error());
                return;
            }
            const manager::ResultPointer& result = std::get<0>(*answer);
            const KSWItem::Pointer item = result == nullptr ? nullptr : result->firstItem();
            if (item != nullptr) {
                reply(Items{item});
            } else {
                reply(result == nullptr || result->code() == KSWErrorNone ? noSuchItem()
                                                                          : KSWErrorWithCode(result->code()));
            }
        },
        identifier, user_);
}

void BackgroundItems::findByURL(const URL& url, const FoundReply& reply) {
    list([url, reply](Result<Items> items) {
        if (items) {
            const FileAsked file(url);
            std::erase_if(*items, [&](const KSWItem::Pointer& item) { return !file.isOf(*item); });
        }
        reply(items && items->empty() ? Result<Items>(noSuchItem()) : std::move(items));
    });
}

void BackgroundItems::decide(const Find& find, bool isAllowed, int attempt, const ElectionReply& reply) {
    find([this, find, isAllowed, attempt, reply](Result<Items> items) {
        if (!items) {
            reply(items.error(), false);
            return;
        }
        std::erase_if(*items, [&](const KSWItem::Pointer& item) { return item->isAllowed() == isAllowed; });
        if (items->empty()) {
            reply(std::nullopt, false);
            return;
        }
        for (const KSWItem::Pointer& item : *items) {
            item->setAllowed(isAllowed);
        }
        store(*items, [this, find, isAllowed, attempt, reply](const Result<std::int64_t>& code) {
            if (!code) {
                reply(code.error(), false);
            } else if (*code == KSWErrorInvalidGeneration && attempt < kAttempts) {
                // Somebody else has changed one meanwhile.
                decide(find, isAllowed, attempt + 1, reply);
            } else {
                const bool isStored = *code == KSWErrorRecordUpdated;
                reply(isStored ? protocol::MaybeError() : protocol::MaybeError(KSWErrorWithCode(*code)), isStored);
            }
        });
    });
}

void BackgroundItems::store(const Items& items, const std::function<void(Result<std::int64_t>)>& reply) {
    const ItemCopies copies = copiesForRequest(*ItemSet::of(items));
    Result<Data> archive = archive::archiveArray<KSWItem>(copies.items, archive::Coder::Ordinary);
    if (!archive) {
        reply(archive.error());
        return;
    }
    daemon_.callAsync(
        manager::kUpdateItems,
        [reply](auto answer) {
            reply(answer ? Result<std::int64_t>(std::get<0>(*answer)) : Result<std::int64_t>(answer.error()));
        },
        *std::move(archive), user_);
}

}  // namespace ksw::agentserver
