// Any text as a requirement: an error of the format that says what, or a requirement whose text parses to an equal
// one that means the same.
#include <cstdlib>
#include <string_view>

#include "platform/base/limits.h"
#include "platform/facts/requirement.h"

namespace {

using namespace ksw::facts;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

CodeFacts factsWith(Anchor anchor) {
    CodeFacts facts;
    facts.identifier = "a";
    facts.team = "b";
    facts.anchor = anchor;
    facts.chain = {{{}, {"c", "d"}}};
    facts.entitlements = ksw::Dictionary{{"e", true}, {"f", false}};
    return facts;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto requirement = Requirement::parse({reinterpret_cast<const char*>(data), size});
    if (!requirement) {
        require(requirement.error().domain() == ksw::kFormatErrorDomain &&
                requirement.error().localizedDescription().starts_with("requirement"));
        return 0;
    }
    const auto again = Requirement::parse(requirement->text());
    require(again.ok() && *again == *requirement && again->text().size() <= ksw::limits::kFieldMax);
    for (const Anchor anchor : {Anchor::None, Anchor::Trusted, Anchor::Maker}) {
        const CodeFacts facts = factsWith(anchor);
        require(requirement->isSatisfiedBy(facts) == again->isSatisfiedBy(facts));
        const auto negated = Requirement::parse("!(" + requirement->text() + ")");
        require(!negated || negated->isSatisfiedBy(facts) != requirement->isSatisfiedBy(facts));
    }
    return 0;
}
