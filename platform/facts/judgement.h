// judgement.h: the answer about one piece of code, found once.
#pragma once

#include <memory>
#include <mutex>
#include <optional>

#include "platform/facts/code_facts.h"
#include "platform/facts/requirement.h"
#include "platform/facts/status.h"

namespace ksw::facts {

using JudgedFacts = Result<std::shared_ptr<const CodeFacts>>;

/// Keeps what the first call finds. Any thread; those that come meanwhile wait for it.
class Judgement {
public:
    template <class Find>
    JudgedFacts get(Find find) {
        std::call_once(once_, [&] { facts_.emplace(find()); });
        return *facts_;
    }

private:
    std::once_flag once_;
    std::optional<JudgedFacts> facts_;
};

/// Whether there are facts and, when there is a requirement, they meet it.
inline Status meets(const JudgedFacts& facts, const Requirement* requirement) {
    if (!facts) {
        return facts.error();
    }
    if (requirement != nullptr && !requirement->isSatisfiedBy(**facts)) {
        return statusError(CodeStatus::RequirementNotMet, requirement->text());
    }
    return {};
}

}  // namespace ksw::facts
