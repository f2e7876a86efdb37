#include "tests/client/manager/daemons.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWFetchResult.h>
#include <kestrelwood/KSWFunctions.h>

namespace ksw::test {

namespace {

namespace methods = protocol::manager;
using Bundle = std::optional<URL>;
using Configuration = std::optional<Dictionary>;
using ResultPointer = std::shared_ptr<KSWFetchResult>;

std::optional<std::string> identifierOf(std::int64_t type, const std::optional<URL>& url,
                                        const Configuration& configuration) {
    if (configuration) {
        if (const auto* label = find<std::string>(*configuration, KSWConfigLabel)) {
            return ComposedItemIdentifier(static_cast<KSWItemType>(type), *label);
        }
    }
    const auto label = url ? LabelForStewardPlist(*url) : std::nullopt;
    return ComposedItemIdentifier(static_cast<KSWItemType>(type), label);
}

std::shared_ptr<KSWItem> itemOf(std::int64_t type, const std::optional<URL>& url,
                                const Configuration& configuration) {
    const auto identifier = identifierOf(type, url, configuration);
    if (!identifier) {
        return nullptr;
    }
    auto item = KSWItem::itemWithType(static_cast<KSWItemType>(type), identifier);
    item->setUrl(url);
    item->setDisposition(item->isDaemon() ? 0x1 : 0x3);
    if (configuration) {
        if (const auto* path = find<std::string>(*configuration, KSWConfigExecutablePath)) {
            item->setExecutablePath(*path);
        }
    }
    return item;
}

}  // namespace

void RealDaemon::start() {
    process_ = host_.startReady();
    ASSERT_NE(process_, nullptr);
}

void RealDaemon::stop() {
    process_->signal(SIGTERM);
    EXPECT_EQ(process_->wait().status, 0);
    process_.reset();
}

std::shared_ptr<KSWFetchResult> ScriptDaemon::enter(std::int64_t type, const std::optional<URL>& bundle,
                                                    const std::optional<URL>& url,
                                                    const Configuration& configuration) {
    const auto item = itemOf(type, url, configuration);
    if (item == nullptr ||
        !KSWItemTypeValidateRegistrationParameters(static_cast<KSWItemType>(type), bundle, url)) {
        return KSWFetchResult::resultWithCode(KSWErrorInvalidParameter, nullptr);
    }
    const std::lock_guard lock(mutex_);
    std::shared_ptr<KSWItem>& record = records_[*item->identifier()];
    const bool isNew = record == nullptr;
    const bool isSame = !isNew && record->executablePath() == item->executablePath();
    if (!isSame) {
        record = item;
    }
    return KSWFetchResult::resultWithCode(isNew    ? KSWErrorNone
                                          : isSame ? KSWErrorRecordExists
                                                   : KSWErrorRecordUpdated,
                                          record);
}

std::int64_t ScriptDaemon::remove(std::int64_t type, const std::optional<URL>& url) {
    const auto identifier = identifierOf(type, url, std::nullopt);
    const std::lock_guard lock(mutex_);
    return identifier && records_.erase(*identifier) == 1 ? KSWErrorNone : KSWErrorRecordNotFound;
}

std::shared_ptr<KSWItem> ScriptDaemon::recordedOrNew(std::int64_t type, const std::optional<URL>& url,
                                                     const Configuration& configuration) {
    const auto identifier = identifierOf(type, url, configuration);
    const std::lock_guard lock(mutex_);
    const auto found = identifier ? records_.find(*identifier) : records_.end();
    return found != records_.end() ? found->second : itemOf(type, url, configuration);
}

ipc::Dispatcher ScriptDaemon::registrarMethods() {
    ipc::Dispatcher dispatcher;
    dispatcher.on(methods::kRegisterItemOfURL,
                  [this](const ipc::RequestContext&, ipc::Responder<ResultPointer> responder, Bundle bundle,
                         std::int64_t type, std::optional<URL> url, Configuration configuration,
                         Uid) { responder.answer(enter(type, bundle, url, configuration)); });
    dispatcher.on(methods::kEffectiveDispositionOfURL,
                  [this](const ipc::RequestContext&,
                         ipc::Responder<std::int64_t, std::optional<Data>, std::int64_t> responder, Bundle,
                         std::int64_t type, std::optional<URL> url, Configuration configuration, Uid) {
                      const auto item = recordedOrNew(type, url, configuration);
                      responder.answer(static_cast<std::int64_t>(item->effectiveDisposition()), std::nullopt, 0);
                  });
    dispatcher.on(methods::kItemOfURL, [this](const ipc::RequestContext&, ipc::Responder<ResultPointer> responder,
                                              Bundle, std::int64_t type, std::optional<URL> url,
                                              Configuration configuration, Uid) {
        const auto identifier = identifierOf(type, url, configuration);
        const std::lock_guard lock(mutex_);
        const auto found = records_.find(identifier.value_or(""));
        responder.answer(found == records_.end() ? KSWFetchResult::resultWithCode(KSWErrorRecordNotFound, nullptr)
                                                 : KSWFetchResult::resultWithCode(KSWErrorNone, found->second));
    });
    return dispatcher;
}

ipc::Dispatcher ScriptDaemon::managerMethods() {
    ipc::Dispatcher dispatcher = registrarMethods();
    dispatcher.on(methods::kUnregisterItemOfURL,
                  [this](const ipc::RequestContext&, ipc::Responder<std::int64_t> responder, Bundle,
                         std::int64_t type, std::optional<URL> url, Uid) { responder.answer(remove(type, url)); });
    dispatcher.on(methods::kItemDisposition,
                  [this](const ipc::RequestContext&, ipc::Responder<std::int64_t, std::int64_t> responder, Bundle,
                         std::int64_t type, std::optional<URL> url, Configuration configuration, Uid) {
                      const auto item = recordedOrNew(type, url, configuration);
                      responder.answer(static_cast<std::int64_t>(item->disposition()), 0);
                  });
    dispatcher.on(methods::kCanLaunchItem,
                  [this](const ipc::RequestContext&, ipc::Responder<bool, std::int64_t> responder, Bundle,
                         std::int64_t type, std::optional<URL> url, Configuration configuration, Uid) {
                      const auto item = recordedOrNew(type, url, configuration);
                      responder.answer(KSWDispositionIsLaunchable(item->effectiveDisposition()), 0);
                  });
    dispatcher.on(methods::kFetchUserIdentifiersAndUIDs,
                  [this](const ipc::RequestContext&, ipc::Responder<std::optional<Dictionary>> responder) {
                      const std::lock_guard lock(mutex_);
                      responder.answer(records_.empty() ? Dictionary{} : Dictionary{{"somebody", ::getuid()}});
                  });
    serveLookups(dispatcher);
    serveChanges(dispatcher);
    return dispatcher;
}

void ScriptDaemon::start() {
    server_ = std::make_unique<ipc::Server>();
    ASSERT_TRUE(server_->listen(kManagerService, ipc::Domain::System, managerMethods()).ok());
    ASSERT_TRUE(server_->listen(kRegistrarService, ipc::Domain::System, registrarMethods()).ok());
    ASSERT_TRUE(server_->start().ok());
}

}  // namespace ksw::test
