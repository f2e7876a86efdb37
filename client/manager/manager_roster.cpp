// manager_roster.cpp: the items of the legacy login-item store.

#include <kestrelwood/KSWManager.h>

#include "client/manager/generation.h"
#include "client/manager/manager_state.h"
#include "client/manager/shared_requests.h"
#include "client/protocol/roster_service.h"
#include "platform/archive/keyed_archive.h"

using ksw::Error;
using ksw::client::RequestActivity;
using ksw::client::Requester;
using ksw::host::mainLog;
namespace methods = ksw::protocol::roster;

namespace {

using ItemPointer = std::shared_ptr<KSWItem>;
using Items = std::vector<ItemPointer>;

/// Sends a method and gives its reply to `onReply`; when the connection fails that is logged and the error.
template <class Method, class OnReply, class... Arguments>
void send(const Requester& requester, const Method& method, std::optional<Error>& error, const OnReply& onReply,
          const Arguments&... arguments) {
    ksw::client::sendRequest(
        requester, method,
        [&](const Error& failure) {
            requester.logConnectionFailure(failure);
            error = failure;
        },
        onReply, arguments...);
}

/// The text of an item type, made only when a log line is written.
struct TypeText {
    std::int64_t type;
    std::string description() const { return KSWItemTypeDescription(static_cast<KSWItemType>(type)); }
};

ksw::Result<Items> itemsIn(const ksw::Data& archive) {
    ksw::archive::DecodeBudget budget(archive.size());
    const ksw::archive::ReadOptions options{.cycles = ksw::archive::Cycles::Allowed};
    ksw::Result<ksw::archive::UnarchivedArray<KSWItem>> decoded =
        ksw::archive::unarchiveArray<KSWItem>(archive, options, budget);
    if (!decoded) {
        return decoded.error();
    }
    return std::move(decoded->roots);
}

std::optional<ksw::UUID> uuidOf(const ItemPointer& item) {
    return item == nullptr ? std::nullopt : item->uuid();
}

/// Sends a method that takes an item and answers with a code. Writes to `errorOut` on failure only.
template <class Method>
bool sendItem(const Requester& requester, const Method& method, const ItemPointer& item, std::int64_t success,
              ksw::Literal operation, std::optional<Error>* errorOut) {
    bool succeeded = false;
    std::optional<Error> error;
    send(
        requester, method, error,
        [&](std::int64_t code) {
            succeeded = code == success;
            if (!succeeded) {
                mainLog.error("%s: result=%{public}@", operation, KSWErrorString(code));
                error = KSWErrorWithCode(code);
            }
        },
        item);
    if (!succeeded && errorOut != nullptr) {
        *errorOut = std::move(error);
    }
    return succeeded;
}

}  // namespace

std::optional<Items> KSWManager::fetchRosterItemsMatching(std::int64_t type, ErrorPlace errorOut) {
    const RequestActivity activity("KSWManager.fetchRosterItemsMatching");
    std::optional<Items> items;
    std::optional<Error> error;
    send(
        state_->requester, methods::kFetchRosterItemsMatching, error,
        [&](const std::optional<ksw::Data>& archive, std::optional<Error>&& answer) {
            if (!archive) {
                mainLog.error("%s: error: %{public}@", "-[KSWManager fetchRosterItemsMatching:error:]_reply",
                              answer);
                error = std::move(answer);
                return;
            }
            ksw::Result<Items> decoded = itemsIn(*archive);
            if (decoded) {
                items = *std::move(decoded);
            } else {
                error = decoded.error();
            }
        },
        type);
    if (errorOut != nullptr) {
        *errorOut = std::move(error);
    }
    return items;
}

ItemPointer KSWManager::addRosterItemWithURL(const OptionalURL& url, std::int64_t type, bool global, bool managed,
                                             ErrorPlace errorOut) {
    const RequestActivity activity("KSWManager.addRosterItemWithURL");
    mainLog.notice("addRosterItemWithURL: url=%{public}@, type=%{public}@", url, TypeText{type});
    ItemPointer added;
    std::optional<Error> error;
    send(
        state_->requester, methods::kAddURL, error,
        [&](std::int64_t code, ItemPointer&& item) {
            if (code != KSWErrorNone && code != KSWErrorRecordExists) {
                mainLog.error("addRosterItemWithURL: result=%{public}@", KSWErrorString(code));
                error = KSWErrorWithCode(code);
                return;
            }
            if (code == KSWErrorRecordExists) {
                mainLog.info("Existing item found for %@ and was changed to 'allow'", url);
            }
            added = std::move(item);
        },
        url, type, global, managed);
    if (errorOut != nullptr) {
        *errorOut = std::move(error);
    }
    return added;
}

bool KSWManager::updateRosterItem(const ItemPointer& item, ErrorPlace error) {
    const RequestActivity activity("KSWManager.updateRosterItem");
    mainLog.notice("updateRosterItem: %{public}@", uuidOf(item));
    const bool success = sendItem(state_->requester, methods::kUpdateItem, item, KSWErrorRecordUpdated,
                                  ksw::Literal{"updateRosterItem"}, error);
    if (success && item != nullptr) {
        item->setGeneration(ksw::client::nextGeneration(item->generation()));
    }
    return success;
}

bool KSWManager::removeRosterItem(const ItemPointer& item, ErrorPlace error) {
    const RequestActivity activity("KSWManager.removeRosterItem");
    mainLog.notice("removeRosterItem: %{public}@", uuidOf(item));
    return sendItem(state_->requester, methods::kRemoveItem, item, KSWErrorNone, ksw::Literal{"removeRosterItem"},
                    error);
}

bool KSWManager::importRosterLoginItemFromURL(const OptionalURL& /*url*/, ksw::Uid /*uid*/,
                                              bool /*deleteWhenDone*/) {
    mainLog.error("%s: not implemented", "-[KSWManager importRosterLoginItemFromURL:uid:deleteWhenDone:]");
    return false;
}
