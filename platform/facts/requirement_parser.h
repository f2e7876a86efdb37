// requirement_parser.h: from a requirement's text to its tree.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "platform/base/result.h"
#include "platform/facts/requirement_node.h"
#include "platform/facts/requirement_scanner.h"

namespace ksw::facts {

/// Parses one text, which is borrowed for its life. Recurses once for a parenthesis or a `!`, at most
/// `limits::kDepthMax` deep. Lets `std::bad_alloc` through. One thread.
class RequirementParser {
public:
    explicit RequirementParser(std::string_view text) : scanner_(text) {}

    /// The whole text's tree. Once.
    Result<RequirementNode> run();

private:
    using Kind = RequirementNode::Kind;
    using Operand = bool (RequirementParser::*)(RequirementNode& into);

    // Each reads what its name says; false after a failure, which is kept in `failure_`.

    bool disjunction(RequirementNode& into);
    bool conjunction(RequirementNode& into);
    bool joined(Kind kind, std::string_view word, Operand operand, RequirementNode& into);
    bool term(RequirementNode& into);
    bool negation(RequirementNode& into);
    bool group(RequirementNode& into);
    bool condition(RequirementNode& into);
    bool anchor(RequirementNode& into);
    bool leafOrganization(RequirementNode& into);
    bool entitlement(RequirementNode& into);
    bool value(Kind kind, RequirementNode& into);

    bool advance();
    bool isWord(std::string_view word) const;
    bool isSign(char sign) const;
    bool takeWord(std::string_view word);
    bool takeSign(char sign);
    bool enter();
    bool expected(std::string_view what);

    RequirementScanner scanner_;
    RequirementToken token_;
    std::size_t depth_ = 0;
    std::optional<Error> failure_;
};

}  // namespace ksw::facts
