#include "tests/agent/controllers/agents.h"

#include <algorithm>
#include <csignal>

#include <kestrelwood/KSWErrors.h>

namespace ksw::test {

namespace {

constexpr std::int64_t kElectionMax = 2;

MaybeError notFound() {
    return KSWErrorWithCode(KSWErrorRecordNotFound);
}

}  // namespace

MaybeError ScriptAgent::add(const std::shared_ptr<KSWLoginItem>& item) {
    const std::lock_guard lock(mutex_);
    std::erase_if(loginItems_, [&item](const auto& other) { return other->isEqual(item); });
    loginItems_.push_back(item);
    return {};
}

MaybeError ScriptAgent::remove(const std::shared_ptr<KSWLoginItem>& item) {
    const std::lock_guard lock(mutex_);
    return std::erase_if(loginItems_, [&item](const auto& other) { return other->isEqual(item); }) == 0
               ? notFound()
               : std::nullopt;
}

MaybeError ScriptAgent::elect(std::int64_t election, const std::optional<UUID>& identifier) {
    if (election < 1 || election > kElectionMax) {
        return Error(kStatusErrorDomain, -50);
    }
    const std::lock_guard lock(mutex_);
    for (auto& item : backgroundItems_) {
        if (item->identifier() == identifier) {
            item = KSWBackgroundItem::initWithIdentifier(identifier, item->type(), item->bookmark(), election);
            return {};
        }
    }
    return notFound();
}

void ScriptAgent::serveLoginItems(Running& running) {
    using Items = ipc::Responder<methods::LoginItems, MaybeError>;
    using Responder = ipc::Responder<MaybeError>;
    running.agent.on(methods::kGetLoginItems,
                     [this](const ipc::RequestContext&, Items responder, std::uint64_t mask) {
                         const std::lock_guard lock(mutex_);
                         LoginItemList matching;
                         std::ranges::copy_if(loginItems_, std::back_inserter(matching),
                                              [mask](const auto& item) { return (item->type() & mask) != 0; });
                         responder.answer(matching, {});
                     });
    const auto change = [this, &running](auto operation) {
        return [this, &running, operation](const ipc::RequestContext&, Responder responder,
                                           const std::shared_ptr<KSWLoginItem>& item) {
            const MaybeError error = (this->*operation)(item);
            if (!error) {
                running.hub->post(changeNotification());
            }
            responder.answer(error);
        };
    };
    running.agent.on(methods::kAddLoginItem, change(&ScriptAgent::add));
    running.agent.on(methods::kRemoveLoginItem, change(&ScriptAgent::remove));
    running.agent.answer(methods::kOpenLoginItems, Error(kStatusErrorDomain, -4, "no settings program"));
    running.agent.answer(methods::kImportRosterLoginItems, {});
}

void ScriptAgent::serveBackgroundItems(Running& running) {
    using Items = ipc::Responder<methods::BackgroundItems, MaybeError>;
    running.agent.on(methods::kGetBackgroundItems, [this](const ipc::RequestContext&, Items responder) {
        const std::lock_guard lock(mutex_);
        responder.answer(backgroundItems_, {});
    });
    running.agent.on(methods::kSetElectionForIdentifier,
                     [this, &running](const ipc::RequestContext&, ipc::Responder<MaybeError> responder,
                                      std::int64_t election, const std::optional<UUID>& identifier) {
                         const MaybeError error = elect(election, identifier);
                         if (!error) {
                             running.hub->post(changeNotification());
                         }
                         responder.answer(error);
                     });
    running.agent.answer(methods::kSetElectionForURL, notFound());
}

void ScriptAgent::start() {
    running_ = std::make_unique<Running>();
    serveLoginItems(*running_);
    serveBackgroundItems(*running_);
    running_->agent.start();
}

void ScriptAgent::stop() {
    running_->agent.stop();
    running_.reset();
}

void ScriptAgent::haveBackgroundItem() {
    const std::lock_guard lock(mutex_);
    backgroundItems_.push_back(KSWBackgroundItem::initWithType(KSWItemTypeAgent, std::nullopt));
}

void RealAgent::startDaemon() {
    if (daemon_ == nullptr) {
        daemon_ = host_.startReady();
    }
    ASSERT_NE(daemon_, nullptr);
}

void RealAgent::start() {
    startDaemon();
    agent_ = host_.startAgent();
    ASSERT_NE(agent_, nullptr);
}

void RealAgent::stop() {
    agent_->signal(SIGTERM);
    EXPECT_EQ(agent_->wait().status, 0);
    agent_.reset();
}

void RealAgent::haveBackgroundItem() {
    startDaemon();
    agentserver::test::registerJob("com.example.background");
}

}  // namespace ksw::test
