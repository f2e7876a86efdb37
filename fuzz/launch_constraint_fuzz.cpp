// Any bytes as the requirement entry of a launch constraint: an error of the format, or a constraint whose facts,
// written again, give the same bytes.
#include <cstdlib>

#include "platform/base/limits.h"
#include "platform/facts/launch_constraint.h"

namespace {

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using ksw::facts::LaunchConstraint;
    const auto constraint = LaunchConstraint::make({data, size}, 1, 0);
    if (!constraint) {
        require(constraint.error().domain() == ksw::kFormatErrorDomain &&
                constraint.error().localizedDescription().starts_with("launch constraint: "));
        return 0;
    }
    require(constraint->externalRepresentation().size() <= ksw::limits::kFieldMax);
    require(constraint->debugDescription().starts_with("LWCR version=1"));
    const auto entry = ksw::facts::encodedRequirement(constraint->facts());
    require(entry.ok() && entry->size() == size);
    const auto again = LaunchConstraint::make(*entry, 1, 0);
    require(again.ok() && again->facts() == constraint->facts() &&
            again->externalRepresentation() == constraint->externalRepresentation());
    return 0;
}
