#include "tests/support/sys_faults.h"

#include <array>
#include <cerrno>

#include "platform/base/guarded.h"
#include "platform/base/never_destroyed.h"

namespace ksw::test {

namespace {

struct Rule {
    unsigned seen = 0;
    unsigned failAt = 0;  // 0: none
    unsigned failFrom = 0;
    int error = 0;
    bool failsAlways = false;
    unsigned interruptions = 0;
    std::size_t lengthMax = SIZE_MAX;
};

using Rules = std::array<Rule, static_cast<std::size_t>(host::sys::Call::Count)>;

class RuleHook final : public host::sys::Hook {
public:
    host::sys::Outcome before(host::sys::Call call) noexcept override {
        auto rules = rules_.lock();
        Rule& rule = (*rules)[static_cast<std::size_t>(call)];
        ++rule.seen;
        if (rule.interruptions > 0) {
            --rule.interruptions;
            return {EINTR};
        }
        const bool isReached = rule.failFrom > 0 && rule.seen >= rule.failFrom;
        if (rule.failsAlways || isReached || (rule.failAt > 0 && rule.seen == rule.failAt)) {
            return {rule.error};
        }
        return {0, rule.lengthMax};
    }

    Guarded<Rules>& rules() { return rules_; }

private:
    Guarded<Rules> rules_;
};

RuleHook& ruleHook() {
    static NeverDestroyed<RuleHook> hook;
    return *hook;
}

template <class Change>
void changeRule(host::sys::Call call, Change change) {
    auto rules = ruleHook().rules().lock();
    change((*rules)[static_cast<std::size_t>(call)]);
}

}  // namespace

SysFaults::SysFaults() {
    *ruleHook().rules().lock() = Rules{};
    host::sys::hook.store(&ruleHook());
}

SysFaults::~SysFaults() {
    host::sys::hook.store(nullptr);
}

void SysFaults::failNth(host::sys::Call call, unsigned nth, int error) {
    changeRule(call, [&](Rule& rule) {
        rule.failAt = rule.seen + nth;
        rule.error = error;
    });
}

void SysFaults::failFrom(host::sys::Call call, unsigned nth, int error) {
    changeRule(call, [&](Rule& rule) {
        rule.failFrom = rule.seen + nth;
        rule.error = error;
    });
}

void SysFaults::failAll(host::sys::Call call, int error) {
    changeRule(call, [&](Rule& rule) {
        rule.failsAlways = true;
        rule.error = error;
    });
}

void SysFaults::interrupt(host::sys::Call call, unsigned times) {
    changeRule(call, [&](Rule& rule) { rule.interruptions = times; });
}

void SysFaults::shorten(host::sys::Call call, std::size_t bytes) {
    changeRule(call, [&](Rule& rule) { rule.lengthMax = bytes; });
}

unsigned SysFaults::count(host::sys::Call call) const {
    auto rules = ruleHook().rules().lock();
    return (*rules)[static_cast<std::size_t>(call)].seen;
}

}  // namespace ksw::test
