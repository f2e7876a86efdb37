#include "platform/facts/launch_constraint_facts.h"

#include <string_view>
#include <utility>

namespace ksw::facts {

namespace {

constexpr std::string_view kTeam = "team";
constexpr std::string_view kAnchor = "anchor";
constexpr std::string_view kIdentifier = "identifier";
constexpr std::string_view kEntitlements = "entitlements";
constexpr std::string_view kOrganization = "organization";
constexpr std::string_view kMaker = "velmont";
constexpr std::string_view kTrusted = "trusted";
constexpr const char* kTwice = "a fact is asked for twice";
constexpr const char* kNothing = "no fact is asked for";
constexpr const char* kEmpty = "a text is empty";

std::string_view nameOf(Anchor anchor) {
    return anchor == Anchor::Maker ? kMaker : kTrusted;
}

/// Reads one entry. A fact that is not known is refused: a constraint without it would allow more than its signer
/// meant to.
class FactsReader {
public:
    explicit FactsReader(archive::Reader& reader) : reader_(reader) {}

    bool read(ConstraintFacts& facts) {
        std::size_t count = 0;
        if (!reader_.enterMap(count)) {
            return false;
        }
        if (count == 0) {
            return reader_.fail(FormatError::Malformed, kNothing);
        }
        for (; count > 0; --count) {
            std::string_view key;
            if (!reader_.text(key) || !fact(key, facts)) {
                return false;
            }
        }
        reader_.leave();
        return reader_.end();
    }

private:
    bool fact(std::string_view key, ConstraintFacts& facts) {
        if (key == kTeam) {
            return text(facts.team);
        }
        if (key == kAnchor) {
            return anchor(facts.anchor);
        }
        if (key == kIdentifier) {
            return text(facts.identifier);
        }
        if (key == kEntitlements) {
            return entitlements(facts.entitlements);
        }
        if (key == kOrganization) {
            return text(facts.organization);
        }
        return reader_.fail(FormatError::Malformed, "an unknown fact is asked for");
    }

    bool filledText(std::string& into) {
        return reader_.text(into) && (!into.empty() || reader_.fail(FormatError::Malformed, kEmpty));
    }

    bool text(std::optional<std::string>& into) {
        if (into.has_value()) {
            return reader_.fail(FormatError::Malformed, kTwice);
        }
        return filledText(into.emplace());
    }

    bool anchor(Anchor& into) {
        std::string_view name;
        if (!reader_.text(name)) {
            return false;
        }
        if (into != Anchor::None) {
            return reader_.fail(FormatError::Malformed, kTwice);
        }
        if (name != kMaker && name != kTrusted) {
            return reader_.fail(FormatError::Malformed, "an unknown anchor is asked for");
        }
        into = name == kMaker ? Anchor::Maker : Anchor::Trusted;
        return true;
    }

    bool entitlements(std::set<std::string>& into) {
        std::size_t count = 0;
        if (!reader_.enterArray(count)) {
            return false;
        }
        if (count == 0) {
            return reader_.fail(FormatError::Malformed, kNothing);
        }
        if (!into.empty()) {
            return reader_.fail(FormatError::Malformed, kTwice);
        }
        for (; count > 0; --count) {
            std::string key;
            if (!reader_.chargeHeap(kSetElement) || !filledText(key)) {
                return false;
            }
            if (!into.insert(std::move(key)).second) {
                return reader_.fail(FormatError::Malformed, kTwice);
            }
        }
        reader_.leave();
        return true;
    }

    static constexpr std::size_t kSetElement = sizeof(std::string) + 4 * sizeof(void*);  // what a node takes

    archive::Reader& reader_;
};

void writeText(archive::Writer& writer, std::string_view text) {
    if (text.empty()) {
        writer.fail(FormatError::Unsupported, kEmpty);
    }
    writer.text(text);
}

void writeText(archive::Writer& writer, std::string_view key, const std::optional<std::string>& text) {
    if (text.has_value()) {
        writer.text(key);
        writeText(writer, *text);
    }
}

}  // namespace

bool readRequirement(archive::Reader& reader, ConstraintFacts& facts) {
    return FactsReader(reader).read(facts);
}

void writeRequirement(archive::Writer& writer, const ConstraintFacts& facts) {
    const std::size_t count = std::size_t{facts.team.has_value()} + std::size_t{facts.anchor != Anchor::None} +
                              std::size_t{facts.identifier.has_value()} + std::size_t{!facts.entitlements.empty()} +
                              std::size_t{facts.organization.has_value()};
    if (count == 0) {
        writer.fail(FormatError::Unsupported, kNothing);
    }
    writer.map(count);
    writeText(writer, kTeam, facts.team);
    if (facts.anchor != Anchor::None) {
        writer.text(kAnchor);
        writer.text(nameOf(facts.anchor));
    }
    writeText(writer, kIdentifier, facts.identifier);
    if (!facts.entitlements.empty()) {
        writer.text(kEntitlements);
        writer.array(facts.entitlements.size());
        for (const std::string& key : facts.entitlements) {
            writeText(writer, key);
        }
    }
    writeText(writer, kOrganization, facts.organization);
}

Dictionary dictionaryOf(const ConstraintFacts& facts) {
    Dictionary dictionary;
    for (const auto& [key, text] : {std::pair(kTeam, &facts.team), std::pair(kIdentifier, &facts.identifier),
                                    std::pair(kOrganization, &facts.organization)}) {
        if (text->has_value()) {
            dictionary.emplace(key, **text);
        }
    }
    if (facts.anchor != Anchor::None) {
        dictionary.emplace(kAnchor, nameOf(facts.anchor));
    }
    if (!facts.entitlements.empty()) {
        dictionary.emplace(kEntitlements, Array(facts.entitlements.begin(), facts.entitlements.end()));
    }
    return dictionary;
}

}  // namespace ksw::facts
