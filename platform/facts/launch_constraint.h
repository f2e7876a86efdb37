// launch_constraint.h: what code must be for the host to launch it, as bytes that travel with an item.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include <kestrelwood/values.h>

#include "platform/base/result.h"
#include "platform/facts/launch_constraint_facts.h"

namespace ksw::facts {

/// The facts as a requirement entry, in deterministic CBOR (docs/signatures.md). Error: FormatError when nothing is
/// asked for, a text is empty or not UTF-8, or the constraint made of it would be too long. Does not throw.
Result<Data> encodedRequirement(const ConstraintFacts& facts);

/// A launch constraint of version 1 and category 0. Immutable; it copies. Any thread.
class LaunchConstraint {
public:
    static constexpr std::uint64_t kVersion = 1;
    static constexpr std::uint64_t kCategory = 0;

    /// From a requirement entry as a signer gave it, in any order of keys. Error: FormatError with a text for
    /// people: `Unsupported` for another version or category; `WrongType`, `Malformed` and `LimitPassed` for an
    /// entry that is not one, asks for an unknown fact, for one twice or for none, or is too long. Does not throw.
    static Result<LaunchConstraint> make(Bytes requirement, std::uint64_t version, std::uint64_t category);

    const ConstraintFacts& facts() const { return facts_; }

    /// Deterministic CBOR, at most `limits::kFieldMax` bytes: equal constraints give equal bytes.
    const Data& externalRepresentation() const { return external_; }

    /// For people: "LWCR version=1, constraint category=0, requirement={…}".
    std::string debugDescription() const;

private:
    LaunchConstraint(ConstraintFacts facts, Data external)
        : facts_(std::move(facts)), external_(std::move(external)) {}

    ConstraintFacts facts_;
    Data external_;
};

}  // namespace ksw::facts
