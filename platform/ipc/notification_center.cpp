#include "platform/ipc/notification_center.h"

#include <stdexcept>
#include <utility>

#include "platform/base/never_destroyed.h"
#include "platform/host/process_epoch.h"
#include "platform/ipc/notification_center_inside.h"

namespace ksw::ipc {

/// What a centre has in one process.
struct NotificationCenter::State {
    std::uint64_t epoch;
    std::shared_ptr<Inside> inside;
};

NotificationCenter::Observation::Observation(std::shared_ptr<Entry> entry) : entry_(std::move(entry)) {}

NotificationCenter::Observation::Observation(Observation&& other) noexcept = default;

NotificationCenter::Observation& NotificationCenter::Observation::operator=(Observation&& other) noexcept {
    if (this != &other) {
        end();
        entry_ = std::move(other.entry_);
    }
    return *this;
}

NotificationCenter::Observation::~Observation() {
    end();
}

void NotificationCenter::Observation::end() {
    const std::shared_ptr<Entry> entry = std::move(entry_);
    // One of a process that this one was forked from is over already, and its centre's locks may be held for ever.
    if (entry == nullptr || entry->epoch != host::processEpoch()) {
        return;
    }
    if (const std::shared_ptr<Inside> center = entry->center.lock()) {
        center->release(*entry);
    }
}

NotificationCenter& NotificationCenter::of(Domain domain) {
    static NeverDestroyed<NotificationCenter> system(Domain::System);
    static NeverDestroyed<NotificationCenter> session(Domain::Session);
    return domain == Domain::System ? *system : *session;
}

NotificationCenter::NotificationCenter(Domain domain) : domain_(domain) {}

NotificationCenter::~NotificationCenter() {
    State* state = state_.load(std::memory_order_acquire);
    // The state of a process that this one was forked from is left alone.
    if (state == nullptr || state->epoch != host::processEpoch()) {
        return;
    }
    const std::unique_ptr<State> owner(state);
    state->inside->stop();
}

NotificationCenter::Inside& NotificationCenter::current() {
    const std::uint64_t epoch = host::processEpoch();
    State* state = state_.load(std::memory_order_acquire);
    if (state != nullptr && state->epoch == epoch) {
        return *state->inside;
    }
    auto fresh = std::make_unique<State>(State{epoch, std::make_shared<Inside>(domain_)});
    return *(state_.compare_exchange_strong(state, fresh.get()) ? fresh.release() : state)->inside;
}

NotificationCenter::Observation NotificationCenter::observe(std::string name, Handler handler, Coalesce coalesce) {
    if (Status status = checkNotificationName(name); !status) {
        throw std::invalid_argument(std::string(status.error().localizedDescription()));
    }
    Inside& inside = current();
    auto entry = std::make_shared<Observation::Entry>();
    entry->center = inside.weak_from_this();
    entry->epoch = host::processEpoch();
    entry->name = std::move(name);
    entry->handler = std::move(handler);
    entry->coalesce = std::move(coalesce);
    Observation observation(entry);
    inside.observe(entry);
    return observation;
}

void NotificationCenter::setSuspended(bool suspended) {
    current().setSuspended(suspended);
}

}  // namespace ksw::ipc
