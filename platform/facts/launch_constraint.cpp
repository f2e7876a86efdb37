#include "platform/facts/launch_constraint.h"

#include "platform/archive/cbor_reader.h"
#include "platform/archive/cbor_writer.h"
#include "platform/base/limits.h"
#include "platform/base/text.h"
#include "platform/facts/within_memory.h"

namespace ksw::facts {

namespace {

constexpr const char* kPlace = "launch constraint";

Error tooLong() {
    return {FormatError::LimitPassed,
            std::string(kPlace) + ": more than " + std::to_string(limits::kFieldMax) + " bytes"};
}

/// The bytes written, unless they are too many for a field of an item.
Result<Data> taken(archive::Writer& writer) {
    Result<Data> bytes = writer.take();
    if (!bytes) {
        return Error(static_cast<FormatError>(bytes.error().code()),
                     std::string(kPlace) + ": " + std::string(bytes.error().localizedDescription()));
    }
    return bytes->size() > limits::kFieldMax ? Result<Data>(tooLong()) : std::move(bytes);
}

Result<ConstraintFacts> factsIn(Bytes requirement) {
    if (requirement.size() > limits::kFieldMax) {
        return tooLong();
    }
    archive::DecodeBudget budget(requirement.size());
    archive::Reader reader(requirement, budget);
    ConstraintFacts facts;
    if (!readRequirement(reader, facts)) {
        return reader.error(kPlace);
    }
    return facts;
}

Result<Data> external(const ConstraintFacts& facts) {
    archive::Writer writer;
    writer.map(3);
    writer.text("version");
    writer.unsignedInteger(LaunchConstraint::kVersion);
    writer.text("category");
    writer.unsignedInteger(LaunchConstraint::kCategory);
    writer.text("requirement");
    writeRequirement(writer, facts);
    return taken(writer);
}

}  // namespace

Result<Data> encodedRequirement(const ConstraintFacts& facts) {
    return withinMemory([&]() -> Result<Data> {
        // The constraint made of it must be short enough, too.
        if (Result<Data> whole = external(facts); !whole) {
            return whole.error();
        }
        archive::Writer writer;
        writeRequirement(writer, facts);
        return taken(writer);
    });
}

Result<LaunchConstraint> LaunchConstraint::make(Bytes requirement, std::uint64_t version, std::uint64_t category) {
    return withinMemory([&]() -> Result<LaunchConstraint> {
        if (version != kVersion) {
            return Error(FormatError::Unsupported,
                         format("%s: version %lu is not known", Literal{kPlace}, version));
        }
        if (category != kCategory) {
            return Error(FormatError::Unsupported,
                         format("%s: category %lu is not known", Literal{kPlace}, category));
        }
        Result<ConstraintFacts> facts = factsIn(requirement);
        if (!facts) {
            return facts.error();
        }
        Result<Data> bytes = external(*facts);
        if (!bytes) {
            return bytes.error();
        }
        return LaunchConstraint(std::move(*facts), std::move(*bytes));
    });
}

std::string LaunchConstraint::debugDescription() const {
    return format("LWCR version=%lu, constraint category=%lu, requirement=%@", kVersion, kCategory,
                  dictionaryOf(facts_));
}

}  // namespace ksw::facts
