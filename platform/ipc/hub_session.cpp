#include "platform/ipc/hub_session.h"

#include <utility>

#include "platform/host/log.h"
#include "platform/host/sys.h"
#include "platform/ipc/responder.h"

namespace ksw::ipc {

namespace {

ServiceInterface notifyInterface() {
    return makeInterface("NotifyInterface", kObserveNotification, kNextNotification, kPostNotification);
}

/// Whether asking again would end the same.
bool isFinalRefusal(const Error& error) {
    if (error.domain() != kConnectionErrorDomain ||
        error.code() != static_cast<std::int64_t>(ConnectionError::Refused)) {
        return false;
    }
    const auto* code = find<std::int64_t>(error.userInfo(), kRefusalCodeKey);
    if (code == nullptr) {
        return false;
    }
    switch (static_cast<Refusal>(*code)) {
        case Refusal::UnknownMethod:
        case Refusal::ArgumentsInvalid:
        case Refusal::NotBuilt:
            return true;
        default:
            return *code == kTooManyNamesCode;
    }
}

}  // namespace

Result<std::shared_ptr<Bell>> Bell::create() {
    Result<UniqueFd> fd = host::sys::eventDescriptor();
    if (!fd) {
        return fd.error();
    }
    return std::make_shared<Bell>(std::move(*fd));
}

void Bell::ring() {
    (void)host::sys::signalEvent(fd_.get());
}

void Bell::silence() {
    (void)host::sys::drainEvent(fd_.get());
}

HubSession::HubSession(Domain domain)
    : connection_(kNotifyService, {domain, std::nullopt, Redial::UntilReached, Handlers::OnCallers},
                  notifyInterface()) {}

HubSession::Standing HubSession::standing(const std::string& name) {
    const std::lock_guard lock(mutex_);
    const auto told = told_.find(name);
    return told == told_.end() ? Standing::Untold : told->second;
}

Status HubSession::observe(const std::string& name) {
    if (standing(name) != Standing::Untold) {
        return {};
    }
    const auto reply = connection_.call(kObserveNotification, name);
    if (!reply) {
        if (!isFinalRefusal(reply.error())) {
            return reply.error();
        }
        host::mainLog.error("notification \"%{public}@\" is not observed: %{public}@", name,
                            reply.error().localizedDescription());
    }
    const std::lock_guard lock(mutex_);
    told_.emplace(name, reply ? Standing::Observed : Standing::Refused);
    return {};
}

void HubSession::askNext() {
    using Reply = Result<std::tuple<std::optional<std::string>, std::optional<Dictionary>>>;
    connection_.callAsync(kNextNotification, [this](Reply reply) {
        if (reply) {
            auto& [name, userInfo] = *reply;
            next_ = Notification{std::move(name).value_or(std::string()), std::move(userInfo)};
        } else {
            next_ = reply.error();
        }
    });
}

std::optional<Result<Notification>> HubSession::takeNext() {
    connection_.runHandlers();
    return std::exchange(next_, std::nullopt);
}

}  // namespace ksw::ipc
