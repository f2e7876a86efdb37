// manager_user_item.cpp: a file becomes an item that opens at login.

#include <unistd.h>

#include <kestrelwood/KSWManager.h>

#include "client/manager/manager_state.h"
#include "client/manager/shared_requests.h"
#include "platform/host/file_facts.h"

using ksw::Error;
using ksw::Uid;
using ksw::client::RequestActivity;
using ksw::client::Requester;
using ksw::host::mainLog;
namespace methods = ksw::protocol::manager;

namespace {

using ItemPointer = std::shared_ptr<KSWItem>;
using MaybeError = std::optional<Error>;

/// Whether the URL names an application. What is no file is none.
ksw::Result<bool> isApplication(const ksw::URL& url) {
    if (!url.isFileURL()) {
        return false;
    }
    const ksw::Result<ksw::host::FileFacts> facts = ksw::host::fileFacts(url.path());
    return facts ? ksw::Result<bool>(facts->isApplication) : facts.error();
}

/// The item for the file; null when it has no identifier.
ItemPointer itemForURL(const ksw::URL& url) {
    const ksw::Result<bool> application = isApplication(url);
    if (!application) {
        mainLog.error("addUserItemForURL: getResourceValue error: %{public}@", application.error());
    } else if (*application) {
        if (ItemPointer item = KSWItem::itemWithType(KSWItemTypeApp, url)) {
            return item;
        }
    }
    return KSWItem::itemWithType(KSWItemTypeUserItem, url);
}

/// Sends a method that takes an item and answers with a code, and gives the code to `onCode`.
template <class Method, class OnCode>
void send(const Requester& requester, const Method& method, const ItemPointer& item, Uid uid, MaybeError& error,
          const OnCode& onCode) {
    ksw::client::sendRequest(
        requester, method,
        [&](const Error& failure) {
            requester.logConnectionFailure(failure);
            error = failure;
        },
        onCode, item, uid);
}

void add(const Requester& requester, const ItemPointer& item, Uid uid, MaybeError& error) {
    send(requester, methods::kAddItem, item, uid, error, [&](std::int64_t code) {
        if (code != KSWErrorNone) {
            error = KSWErrorWithCode(code);
            mainLog.error("addUserItemForURL: serviceResult=%{public}@", *error);
        }
    });
}

/// Enables the record. How that ends is nobody's concern: the record is there.
void enable(const Requester& requester, const ItemPointer& item, Uid uid, MaybeError& error) {
    item->setEnabled(true);
    send(requester, methods::kUpdateItem, item, uid, error, [&](std::int64_t code) {
        error = code == KSWErrorRecordUpdated ? std::nullopt : MaybeError(KSWErrorWithCode(code));
    });
}

bool saysThatItExists(const MaybeError& error) {
    return error && error->domain() == KSWErrorDomain && error->code() == KSWErrorRecordExists;
}

}  // namespace

ItemPointer KSWManager::addUserItemForURL(const ksw::URL& url, Uid uid, ErrorPlace errorOut) {
    const RequestActivity activity("KSWManager.addUserItemForURL");
    MaybeError error;
    const auto fail = [&] {
        if (errorOut != nullptr) {
            *errorOut = error;
        }
        return nullptr;
    };
    ItemPointer item = itemForURL(url);
    if (item == nullptr) {
        error = Error(KSWErrorDomain, KSWErrorInvalidParameter);
        return fail();
    }
    item->setEnabled(true);
    item->setAllowed(true);
    add(state_->requester, item, uid, error);
    if (saysThatItExists(error)) {
        error.reset();
        mainLog.info("addUserItemForURL: fetching exiting item for identifier=%{public}@", item->identifier());
        item = getItemWithIdentifier(item->identifier(), uid, &error);
        if (item == nullptr) {
            mainLog.error("addUserItemForURL: error fetching existing item: %{public}@", error);
            return fail();
        }
        if (!item->isEnabled()) {
            enable(state_->requester, item, uid, error);
        }
    }
    mainLog.debug("addUserItemForURL: item.uuid=%{public}@", item->uuid());
    return item;
}

ItemPointer KSWManager::addUserItemForURL(const ksw::URL& url) {
    return addUserItemForCaller(url, nullptr);
}

ItemPointer KSWManager::addUserItemForCaller(const ksw::URL& url, ErrorPlace error) {
    return addUserItemForURL(url, ::getuid(), error);
}
