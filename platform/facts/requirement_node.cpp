#include "platform/facts/requirement_node.h"

#include <algorithm>
#include <string_view>

namespace ksw::facts {

namespace {

using Kind = RequirementNode::Kind;

void spell(const RequirementNode& node, std::string& text);

void quote(std::string_view value, std::string& text) {
    text += '"';
    for (const char c : value) {
        if (c == '"' || c == '\\') {
            text += '\\';
        }
        text += c;
    }
    text += '"';
}

/// How closely the node's own operator binds.
int closeness(Kind kind) {
    return kind == Kind::Or ? 0 : kind == Kind::And ? 1 : 2;
}

void spellInside(Kind outer, const RequirementNode& node, std::string& text) {
    const bool needsParentheses = closeness(node.kind) < closeness(outer);
    text += needsParentheses ? "(" : "";
    spell(node, text);
    text += needsParentheses ? ")" : "";
}

void spellJoined(const RequirementNode& node, std::string_view word, std::string& text) {
    std::string_view separator;
    for (const RequirementNode& child : node.children) {
        text += separator;
        spellInside(node.kind, child, text);
        separator = word;
    }
}

void spellCondition(std::string_view before, const RequirementNode& node, std::string_view behind,
                    std::string& text) {
    text += before;
    quote(node.value, text);
    text += behind;
}

void spell(const RequirementNode& node, std::string& text) {
    switch (node.kind) {
        case Kind::MakerAnchor:
            text += "anchor velmont";
            break;
        case Kind::TrustedAnchor:
            text += "anchor trusted";
            break;
        case Kind::Identifier:
            return spellCondition("identifier ", node, "", text);
        case Kind::Team:
            return spellCondition("team ", node, "", text);
        case Kind::LeafOrganization:
            return spellCondition("certificate leaf[subject.O] = ", node, "", text);
        case Kind::Entitlement:
            return spellCondition("entitlement[", node, "]", text);
        case Kind::Not:
            text += '!';
            return spellInside(node.kind, node.children.front(), text);
        case Kind::And:
            return spellJoined(node, " and ", text);
        case Kind::Or:
            return spellJoined(node, " or ", text);
    }
}

bool isLeafOrganization(const std::vector<Certificate>& chain, const std::string& name) {
    return !chain.empty() && std::find(chain.front().organizations.begin(), chain.front().organizations.end(),
                                       name) != chain.front().organizations.end();
}

bool isEntitled(const std::optional<Dictionary>& entitlements, const std::string& key) {
    const bool* granted = entitlements ? find<bool>(*entitlements, key) : nullptr;
    return granted != nullptr && *granted;
}

}  // namespace

std::string spellingOf(const RequirementNode& node) {
    std::string text;
    spell(node, text);
    return text;
}

bool isMet(const RequirementNode& node, const CodeFacts& facts) {
    const auto isChildMet = [&](const RequirementNode& child) { return isMet(child, facts); };
    switch (node.kind) {
        case Kind::MakerAnchor:
            return facts.anchor == Anchor::Maker;
        case Kind::TrustedAnchor:
            return facts.anchor != Anchor::None;
        case Kind::Identifier:
            return facts.identifier == node.value;
        case Kind::Team:
            return facts.team == node.value;
        case Kind::LeafOrganization:
            return isLeafOrganization(facts.chain, node.value);
        case Kind::Entitlement:
            return isEntitled(facts.entitlements, node.value);
        case Kind::Not:
            return !isMet(node.children.front(), facts);
        case Kind::And:
            return std::all_of(node.children.begin(), node.children.end(), isChildMet);
        case Kind::Or:
            return std::any_of(node.children.begin(), node.children.end(), isChildMet);
    }
    return false;
}

}  // namespace ksw::facts
