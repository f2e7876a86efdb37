// developer_name.h: who is shown as the developer of code.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/facts/code_facts.h"

namespace ksw::facts {

/// The name of the platform's maker in its certificates.
inline constexpr std::string_view kMakerName = "Velmont Inc.";

/// The first organization of the signer's own certificate without white space (Unicode's White_Space) at its ends.
/// Absent when nothing is left, and without a certificate.
std::optional<std::string> leafOrganization(const CodeFacts& facts);

/// The name, but not the maker's: code of the platform has no developer.
std::optional<std::string> withoutMaker(std::optional<std::string> name);

}  // namespace ksw::facts
