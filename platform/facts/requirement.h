// requirement.h: conditions on code, as text: `anchor trusted and identifier "com.example.tool"`.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "platform/base/result.h"
#include "platform/facts/code_facts.h"

namespace ksw::facts {

/// A parsed requirement. Immutable; copies share. Any thread.
class Requirement {
public:
    /// Grammar: `anchor velmont`, `anchor trusted`, `identifier "x"`, `team "x"`, `certificate leaf[subject.O] =
    /// "x"`, `entitlement["key"]`, `and`, `or`, `!`, parentheses; `!` binds closest, then `and`, then `or`. Words
    /// of letters, digits, "." and "-" may stand without quotes; inside quotes `\"` and `\\` are escapes. Error:
    /// FormatError with the column, in characters, of what is wrong. `LimitPassed` for more than
    /// `limits::kFieldMax` bytes, in `text` or in the normal spelling, and for parentheses and `!` nested more than
    /// `limits::kDepthMax` deep. Does not throw.
    static Result<Requirement> parse(std::string_view text);

    /// The requirement in its one normal spelling; parsing it gives an equal requirement.
    const std::string& text() const;

    /// Whether code with these facts meets it. `anchor trusted` holds for the maker's code too; a certificate's
    /// organization is any of the leaf's, compared byte by byte; `entitlement["key"]` asks for the bool true.
    /// Says nothing about the signature: a team or identifier alone is what the code says of itself.
    bool isSatisfiedBy(const CodeFacts& facts) const;

    /// Whether both have the same normal spelling.
    friend bool operator==(const Requirement& left, const Requirement& right) {
        return left.text() == right.text();
    }

private:
    struct Content;
    explicit Requirement(std::shared_ptr<const Content> content) : content_(std::move(content)) {}

    std::shared_ptr<const Content> content_;
};

}  // namespace ksw::facts
