// code_facts.h: what a signature says of its code, once everything about it has been checked.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <kestrelwood/values.h>

namespace ksw::facts {

/// A certificate of the signer's chain.
struct Certificate {
    Data encoded;  ///< DER.
    std::vector<std::string>
        organizations;  ///< The subject's organization names (RFC 5280, id-at-organizationName), in order.
};

/// The team of the platform's own applications. A signer chooses the team that he writes into a signature; this one
/// is the maker's alone, and in any other signature does not hold.
inline constexpr const char* kPlatformTeam = "SYSTEMAPPS";

/// How far the signer's chain reaches.
enum class Anchor : std::uint8_t {
    None,     ///< To no certificate that this host trusts, or there is no chain.
    Trusted,  ///< To one in the host's trust folders.
    Maker,    ///< To one of the platform maker's own, which are trusted too.
};

/// Immutable values; they copy.
struct CodeFacts {
    std::string identifier;           ///< The signing identifier.
    std::optional<std::string> team;  ///< The team identifier.
    std::string format;               ///< "elf executable", "generic script", "generic file", "bundle with …".
    std::string source;               ///< "embedded" for a signature with a signer, "ad-hoc" without.
    std::vector<Certificate> chain;   ///< The signer's own certificate first.
    Anchor anchor = Anchor::None;
    std::optional<Dictionary> informationPropertyList;
    std::optional<Dictionary> entitlements;
    std::optional<std::string> requirement;  ///< The designated requirement's text.
    std::optional<Data> constraint;          ///< The default designated launch constraint, as the signer gave it.
};

}  // namespace ksw::facts
