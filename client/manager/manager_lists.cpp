// manager_lists.cpp: the lists that a manager hands out, and what happens to them when a user's items change.

#include <unistd.h>

#include <kestrelwood/KSWManager.h>

#include "client/manager/manager_state.h"
#include "client/protocol/manager_service.h"
#include "client/protocol/user_data_change.h"
#include "platform/host/feature_flags.h"
#include "platform/host/log.h"
#include "platform/plist/property_list.h"

using ksw::Literal;
using ksw::client::RequestActivity;
using ksw::host::mainLog;
using ksw::protocol::UserDataChange;

namespace {

constexpr Literal kGetItemsReply{"-[KSWManager _getItemsMatching:uid:error:]_reply"};
constexpr Literal kGetItems{"-[KSWManager getItemsMatching:uid:error:]"};
constexpr Literal kHandleChange{"-[KSWManager handleUserDataDidChangeNotification:]"};

const void* addressOf(const std::shared_ptr<KSWList>& list) {
    return list.get();
}

bool concerns(std::int64_t changedType, std::int64_t listType) {
    return (changedType & UserDataChange::kEveryType) != 0 || (changedType & listType) != 0;
}

bool listsAreRefreshed() {
    return ksw::host::isFeatureEnabled("Kestrelwood", "AutoRefreshLists", ksw::plist::read);
}

void logChange(const ksw::Notification& notification, std::size_t listCount) {
    mainLog.debug("%s: uid=%d, type=%#lx, list count=%lu", kHandleChange,
                  static_cast<std::int32_t>(ksw::protocol::saidUid(notification).value_or(-1)),
                  ksw::protocol::saidType(notification).value_or(0), listCount);
}

}  // namespace

std::shared_ptr<KSWList> KSWManager::_getItemsMatching(std::int64_t type, ksw::Uid uid, ErrorPlace error) {
    const RequestActivity activity("KSWManager.getItemsMatching");
    std::optional<ksw::Error> failure;
    std::optional<ksw::Data> archive;
    ksw::client::sendRequest(
        state_->requester, ksw::protocol::manager::kGetItemsMatching,
        [&](const ksw::Error& connectionError) {
            state_->requester.logConnectionFailure(connectionError);
            failure = connectionError;
        },
        [&](std::optional<ksw::Data>&& answer, std::optional<ksw::Error>&& refusal) {
            if (refusal) {
                mainLog.error("%s: error: %{public}@", kGetItemsReply, *refusal);
            }
            archive = std::move(answer);
            failure = std::move(refusal);
        },
        type, uid);
    std::shared_ptr<KSWList> list = archive ? KSWList::initWithCoder(*archive, &failure) : nullptr;
    if (list == nullptr && error != nullptr) {
        *error = std::move(failure);
    }
    return list;
}

std::shared_ptr<KSWList> KSWManager::getItemsMatching(std::int64_t type, ksw::Uid uid, ErrorPlace error) {
    const std::uint64_t handledBefore = state_->changesHandled;
    std::shared_ptr<KSWList> list = _getItemsMatching(type, uid, error);
    if (list == nullptr) {
        return nullptr;
    }
    state_->lists.add(list,
                      [&] { mainLog.debug("%s: adding list %p, type=%#lx", kGetItems, addressOf(list), type); });
    // A change that was handled meanwhile did not find the list, and what the daemon answered may be older.
    if (state_->changesHandled != handledBefore && listsAreRefreshed()) {
        list->refresh();
    }
    return list;
}

std::shared_ptr<KSWList> KSWManager::getItemsMatching(std::int64_t type) {
    return getItemsMatchingForCaller(type, nullptr);
}

std::shared_ptr<KSWList> KSWManager::getItemsMatchingForCaller(std::int64_t type, ErrorPlace error) {
    return getItemsMatching(type, ::getuid(), error);
}

void KSWManager::handleUserDataDidChangeNotification(const ksw::Notification& notification) {
    const RequestActivity activity("KSWManager.userDataDidChange");
    ++state_->changesHandled;
    const ksw::client::ListRegistry::Lists lists = state_->lists.living();
    logChange(notification, lists.size());
    const UserDataChange change = ksw::protocol::userDataChangeOf(notification);
    std::optional<bool> refreshing;  // asked when the first list needs it: the answer costs two files
    for (const std::shared_ptr<KSWList>& list : lists) {
        mainLog.debug("%s: handling list %p", kHandleChange, addressOf(list));
        if (change.uid != ksw::kEveryUser && list->uid() != change.uid) {
            continue;
        }
        if (!refreshing) {
            refreshing = listsAreRefreshed();
        }
        if (*refreshing) {
            mainLog.debug("%s: refreshing list %p", kHandleChange, addressOf(list));
            list->refresh();
        }
        if (!concerns(change.type, list->type())) {
            continue;
        }
        for (const std::shared_ptr<KSWListObserver>& observer : list->currentObservers()) {
            mainLog.debug("%s: notifying observer %p of list %p", kHandleChange,
                          static_cast<const void*>(observer.get()), addressOf(list));
            observer->listDidChange(list);
        }
    }
}
