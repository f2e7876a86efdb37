// launch_constraint_facts.h: the facts that a launch constraint asks for, and their form in CBOR.
#pragma once

#include <optional>
#include <set>
#include <string>

#include <kestrelwood/values/value.h>

#include "platform/archive/cbor_reader.h"
#include "platform/archive/cbor_writer.h"
#include "platform/facts/code_facts.h"

namespace ksw::facts {

/// The facts that a constraint asks for; all of them must hold. A value; it copies.
struct ConstraintFacts {
    std::optional<std::string> team;
    Anchor anchor = Anchor::None;  ///< `None` asks for none.
    std::optional<std::string> identifier;
    std::set<std::string> entitlements;       ///< Each must be the bool true.
    std::optional<std::string> organization;  ///< One of the leaf certificate's.

    friend bool operator==(const ConstraintFacts&, const ConstraintFacts&) = default;
};

/// Reads a requirement up to the end of the input, keys in any order, into facts that ask for nothing yet. False
/// when the reader fails.
bool readRequirement(archive::Reader& reader, ConstraintFacts& facts);

/// Writes the facts with their keys in the order of the encoded bytes, the shortest first (RFC 8949, 4.2.1). The
/// writer fails when nothing is asked for or a text is empty.
void writeRequirement(archive::Writer& writer, const ConstraintFacts& facts);

/// The facts for people: what is not asked for is left out.
Dictionary dictionaryOf(const ConstraintFacts& facts);

}  // namespace ksw::facts
