// requirement.h: conditions on code, as text: `anchor trusted and identifier "com.example.tool"`.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/base/result.h"
#include "platform/facts/code_facts.h"

namespace ksw::facts {

/// A parsed requirement. Immutable; copies share.
class Requirement {
public:
    /// Grammar: `anchor velmont`, `anchor trusted`, `identifier "x"`, `team "x"`, `certificate leaf[subject.O] =
    /// "x"`, `entitlement["key"]`, `and`, `or`, `!`, parentheses; `!` binds closest, then `and`, then `or`. Words
    /// of letters, digits, "." and "-" may stand without quotes; inside quotes `\"` and `\\` are escapes. Error:
    /// FormatError with the column in its text; nesting and length are bounded.
    static Result<Requirement> parse(std::string_view text);

    /// The requirement in its one normal spelling; parsing it gives an equal requirement.
    std::string text() const;

    /// Whether code with these facts meets it.
    bool isSatisfiedBy(const CodeFacts& facts) const;

private:
    struct Node;
    explicit Requirement(std::shared_ptr<const Node> root) : root_(std::move(root)) {}

    std::shared_ptr<const Node> root_;
};

}  // namespace ksw::facts
