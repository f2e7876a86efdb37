#include "platform/facts/requirement.h"

#include "platform/base/limits.h"
#include "platform/facts/requirement_node.h"
#include "platform/facts/requirement_parser.h"
#include "platform/facts/within_memory.h"

namespace ksw::facts {

struct Requirement::Content {
    RequirementNode root;
    std::string text;
};

namespace {

Error tooLong(std::string_view what) {
    return {FormatError::LimitPassed,
            "requirement: " + std::string(what) + " of more than " + std::to_string(limits::kFieldMax) + " bytes"};
}

}  // namespace

Result<Requirement> Requirement::parse(std::string_view text) {
    return withinMemory([&]() -> Result<Requirement> {
        if (text.size() > limits::kFieldMax) {
            return tooLong("a text");
        }
        Result<RequirementNode> root = RequirementParser(text).run();
        if (!root) {
            return root.error();
        }
        // Blanks and quotes that the text did without may make the normal spelling the longer one.
        std::string spelling = spellingOf(*root);
        if (spelling.size() > limits::kFieldMax) {
            return tooLong("a normal spelling");
        }
        return Requirement(std::make_shared<const Content>(Content{std::move(*root), std::move(spelling)}));
    });
}

const std::string& Requirement::text() const {
    return content_->text;
}

bool Requirement::isSatisfiedBy(const CodeFacts& facts) const {
    return isMet(content_->root, facts);
}

}  // namespace ksw::facts
