// ownership.h: which decoded objects own which, and whether that may stand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace ksw::archive {

/// One object owns another. `label` is the caller's.
struct OwningLink {
    std::uint32_t owner;
    std::uint32_t owned;
    std::uint32_t label;
};

/// Walks the links without recursion. Answers the labels of links to leave out so that no object owns itself,
/// however indirectly; absent when even then a chain of owners is longer than limits::kDepthMax, since such a chain
/// could not be destroyed within a thread's stack.
std::optional<std::vector<std::uint32_t>> closingLinks(std::size_t objectCount,
                                                       const std::vector<OwningLink>& links);

}  // namespace ksw::archive
