#include "platform/ipc/hub_session.h"

#include <utility>

#include "platform/host/log.h"
#include "platform/host/sys.h"

namespace ksw::ipc {

namespace {

ServiceInterface notifyInterface() {
    return makeInterface("NotifyInterface", kObserveNotification, kNextNotification, kPostNotification);
}

bool isRefusal(const Error& error) {
    return error.domain() == kConnectionErrorDomain &&
           error.code() == static_cast<std::int64_t>(ConnectionError::Refused);
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

HubSession::HubSession(Domain domain, std::shared_ptr<Bell> bell)
    : bell_(std::move(bell)),
      connection_(kNotifyService, {domain, std::nullopt, Redial::UntilReached}, notifyInterface()) {}

bool HubSession::hasTold(const std::string& name) {
    const std::lock_guard lock(mutex_);
    return told_.contains(name);
}

Status HubSession::observe(const std::string& name) {
    if (hasTold(name)) {
        return {};
    }
    if (const auto reply = connection_.call(kObserveNotification, name); !reply) {
        if (!isRefusal(reply.error())) {
            return reply.error();
        }
        host::mainLog.error("notification \"%{public}@\" is not observed: %{public}@", name,
                            reply.error().localizedDescription());
    }
    const std::lock_guard lock(mutex_);
    told_.insert(name);
    return {};
}

void HubSession::askNext() {
    using Reply = Result<std::tuple<std::optional<std::string>, std::optional<Dictionary>>>;
    connection_.callAsync(kNextNotification, [this](Reply reply) {
        {
            const std::lock_guard lock(mutex_);
            if (reply) {
                auto& [name, userInfo] = *reply;
                next_ = Notification{std::move(name).value_or(std::string()), std::move(userInfo)};
            } else {
                next_ = reply.error();
            }
        }
        bell_->ring();
    });
}

std::optional<Result<Notification>> HubSession::takeNext() {
    const std::lock_guard lock(mutex_);
    return std::exchange(next_, std::nullopt);
}

}  // namespace ksw::ipc
