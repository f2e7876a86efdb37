#include "platform/host/activity.h"

#include <atomic>

namespace ksw::host {

namespace {

constinit thread_local const ActivityScope* innermost = nullptr;
constinit std::atomic<std::uint64_t> lastId{0};

}  // namespace

Activity currentActivity() {
    return innermost == nullptr ? Activity{} : innermost->activity_;
}

ActivityScope::ActivityScope(std::string_view name, Rule rule) {
    if (rule == Rule::OnlyIfNone && innermost != nullptr) {
        return;
    }
    activity_ = {lastId.fetch_add(1, std::memory_order_relaxed) + 1, name};
    outer_ = innermost;
    innermost = this;
}

ActivityScope::~ActivityScope() {
    if (activity_.id != 0) {
        innermost = outer_;
    }
}

}  // namespace ksw::host
