// requirement_node.h: a requirement as a tree, how it is spelled and what it means.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/facts/code_facts.h"

namespace ksw::facts {

/// One condition, or several joined. As deep as the parser lets it be (`limits::kDepthMax` times a constant), so
/// the functions below may recurse.
struct RequirementNode {
    enum class Kind : std::uint8_t {
        MakerAnchor,
        TrustedAnchor,
        Identifier,
        Team,
        LeafOrganization,
        Entitlement,
        Not,  ///< Of its one child.
        And,  ///< Of two or more, none of which is an `And`.
        Or,   ///< Of two or more, none of which is an `Or`.
    };

    Kind kind = Kind::TrustedAnchor;
    std::string value;  ///< What it compares with, or the entitlement's key.
    std::vector<RequirementNode> children;
};

/// The normal spelling: single blanks, values in quotes, no parentheses but the needed ones.
std::string spellingOf(const RequirementNode& node);

bool isMet(const RequirementNode& node, const CodeFacts& facts);

}  // namespace ksw::facts
