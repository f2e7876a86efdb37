#include "platform/facts/requirement_parser.h"

#include <iterator>
#include <string>
#include <utility>

#include "platform/base/limits.h"

namespace ksw::facts {

namespace {

/// Adds an operand. Both operators are associative, so that operands of the same one are taken in its place.
void append(RequirementNode& joined, RequirementNode operand) {
    if (operand.kind == joined.kind) {
        joined.children.insert(joined.children.end(), std::make_move_iterator(operand.children.begin()),
                               std::make_move_iterator(operand.children.end()));
    } else {
        joined.children.push_back(std::move(operand));
    }
}

}  // namespace

Result<RequirementNode> RequirementParser::run() {
    RequirementNode root;
    if (!advance() || !disjunction(root)) {
        return *failure_;
    }
    if (token_.kind != RequirementToken::Kind::End) {
        expected("\"and\", \"or\" or the end");
        return *failure_;
    }
    return root;
}

bool RequirementParser::disjunction(RequirementNode& into) {
    return joined(Kind::Or, "or", &RequirementParser::conjunction, into);
}

bool RequirementParser::conjunction(RequirementNode& into) {
    return joined(Kind::And, "and", &RequirementParser::term, into);
}

bool RequirementParser::joined(Kind kind, std::string_view word, Operand operand, RequirementNode& into) {
    if (!(this->*operand)(into)) {
        return false;
    }
    if (!isWord(word)) {
        return true;
    }
    RequirementNode whole{kind, {}, {}};
    append(whole, std::move(into));
    while (isWord(word)) {
        RequirementNode next;
        if (!advance() || !(this->*operand)(next)) {
            return false;
        }
        append(whole, std::move(next));
    }
    into = std::move(whole);
    return true;
}

bool RequirementParser::term(RequirementNode& into) {
    if (isSign('!')) {
        return negation(into);
    }
    return isSign('(') ? group(into) : condition(into);
}

bool RequirementParser::negation(RequirementNode& into) {
    RequirementNode negated;
    if (!enter() || !advance() || !term(negated)) {
        return false;
    }
    --depth_;
    into = {Kind::Not, {}, {}};
    into.children.push_back(std::move(negated));
    return true;
}

bool RequirementParser::group(RequirementNode& into) {
    if (!enter() || !advance() || !disjunction(into) || !takeSign(')')) {
        return false;
    }
    --depth_;
    return true;
}

bool RequirementParser::condition(RequirementNode& into) {
    if (isWord("anchor")) {
        return advance() && anchor(into);
    }
    if (isWord("identifier")) {
        return advance() && value(Kind::Identifier, into);
    }
    if (isWord("team")) {
        return advance() && value(Kind::Team, into);
    }
    if (isWord("certificate")) {
        return advance() && leafOrganization(into);
    }
    if (isWord("entitlement")) {
        return advance() && entitlement(into);
    }
    return expected("a condition");
}

bool RequirementParser::anchor(RequirementNode& into) {
    if (!isWord("velmont") && !isWord("trusted")) {
        return expected("\"velmont\" or \"trusted\"");
    }
    into = {isWord("velmont") ? Kind::MakerAnchor : Kind::TrustedAnchor, {}, {}};
    return advance();
}

bool RequirementParser::leafOrganization(RequirementNode& into) {
    return takeWord("leaf") && takeSign('[') && takeWord("subject.O") && takeSign(']') && takeSign('=') &&
           value(Kind::LeafOrganization, into);
}

bool RequirementParser::entitlement(RequirementNode& into) {
    return takeSign('[') && value(Kind::Entitlement, into) && takeSign(']');
}

bool RequirementParser::value(Kind kind, RequirementNode& into) {
    if (token_.kind != RequirementToken::Kind::Word && token_.kind != RequirementToken::Kind::Quoted) {
        return expected("a value");
    }
    into = {kind, std::move(token_.text), {}};
    return advance();
}

bool RequirementParser::advance() {
    Result<RequirementToken> next = scanner_.next();
    if (!next) {
        failure_ = next.error();
        return false;
    }
    token_ = std::move(*next);
    return true;
}

bool RequirementParser::isWord(std::string_view word) const {
    return token_.kind == RequirementToken::Kind::Word && token_.text == word;
}

bool RequirementParser::isSign(char sign) const {
    return token_.kind == RequirementToken::Kind::Sign && token_.text.front() == sign;
}

bool RequirementParser::takeWord(std::string_view word) {
    return isWord(word) ? advance() : expected('"' + std::string(word) + '"');
}

bool RequirementParser::takeSign(char sign) {
    return isSign(sign) ? advance() : expected(std::string{'"', sign, '"'});
}

bool RequirementParser::enter() {
    if (depth_ == limits::kDepthMax) {
        failure_ = scanner_.error(FormatError::LimitPassed, token_.offset, "nested too deeply");
        return false;
    }
    ++depth_;
    return true;
}

bool RequirementParser::expected(std::string_view what) {
    failure_ = scanner_.error(FormatError::Malformed, token_.offset, std::string(what) + " expected");
    return false;
}

}  // namespace ksw::facts
