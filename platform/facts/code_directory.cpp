#include "platform/facts/code_directory.h"

#include <algorithm>
#include <string_view>

#include "platform/archive/cbor_reader.h"
#include "platform/archive/cbor_writer.h"
#include "platform/base/limits.h"
#include "platform/facts/within_memory.h"

namespace ksw::facts {

namespace {

constexpr std::uint64_t kVersion = 1;

/// The keys, in the order in which they stand.
enum class Key : std::uint64_t {
    Version = 1,
    Identifier = 2,
    Team = 3,
    Format = 4,
    CodeSize = 5,
    CodeDigest = 6,
    InformationDigest = 7,
    Information = 8,
    Entitlements = 9,
    Requirement = 10,
    Constraint = 11,
};

constexpr std::size_t kRequiredKeys = 5;

bool isName(std::string_view text) {
    return !text.empty() && std::none_of(text.begin(), text.end(), [](char character) {
        return static_cast<unsigned char>(character) < 0x20 || character == 0x7F;
    });
}

/// Reads the pairs of the map; the key that comes is taken when it is the one asked for.
class DirectoryReader {
public:
    DirectoryReader(archive::Reader& reader, std::size_t pairs) : reader_(reader), left_(pairs) { readKey(); }

    bool required(Key key) {
        return take(key) || reader_.fail(FormatError::Malformed, "a key is missing, unknown or out of its order");
    }

    /// Whether the next value is that of this key.
    bool take(Key key) const { return hasKey_ && key_ == static_cast<std::uint64_t>(key); }

    bool name(std::string& text) {
        return reader_.text(text, limits::kCodeIdentifierMax) &&
               (isName(text) || reader_.fail(FormatError::Malformed, "empty, or has a control character")) &&
               done();
    }

    bool digest(Sha256& digest) {
        Bytes bytes;
        if (!reader_.bytes(bytes, digest.size())) {
            return false;
        }
        if (bytes.size() != digest.size()) {
            return reader_.fail(FormatError::Malformed, "a digest has 32 bytes");
        }
        std::copy(bytes.begin(), bytes.end(), digest.begin());
        return done();
    }

    bool data(std::optional<Data>& data, std::size_t sizeMax) {
        return reader_.bytes(data.emplace(), sizeMax) && done();
    }

    /// Goes on to the next key; whoever reads a value by himself calls it behind that.
    bool done() {
        readKey();
        return reader_.ok();
    }

    bool end() {
        return !hasKey_ || reader_.fail(FormatError::Malformed, "a key is missing, unknown or out of its order");
    }

private:
    void readKey() {
        hasKey_ = left_ != 0 && reader_.unsignedInteger(key_);
        left_ -= hasKey_ ? 1 : 0;
    }

    archive::Reader& reader_;
    std::size_t left_;
    std::uint64_t key_ = 0;
    bool hasKey_ = false;
};

bool readIdentity(archive::Reader& reader, DirectoryReader& keys, CodeDirectory& directory) {
    std::uint64_t version = 0;
    if (!keys.required(Key::Version) || !reader.unsignedInteger(version)) {
        return false;
    }
    if (version != kVersion) {
        return reader.fail(FormatError::Unsupported, "another version");
    }
    return keys.done() && keys.required(Key::Identifier) && keys.name(directory.identifier) &&
           (!keys.take(Key::Team) || keys.name(directory.team.emplace())) && keys.required(Key::Format) &&
           keys.name(directory.format);
}

bool readCode(archive::Reader& reader, DirectoryReader& keys, CodeDirectory& directory) {
    return keys.required(Key::CodeSize) && reader.unsignedInteger(directory.codeSize) && keys.done() &&
           keys.required(Key::CodeDigest) && keys.digest(directory.codeDigest);
}

bool readInformation(archive::Reader& reader, DirectoryReader& keys, CodeDirectory& directory) {
    if (!keys.take(Key::InformationDigest)) {
        return reader.ok();
    }
    SealedInformation& information = directory.information.emplace();
    return keys.digest(information.digest) && keys.required(Key::Information) &&
           reader.bytes(information.content, limits::kPropertyListFileMax) && keys.done();
}

bool readConditions(archive::Reader& reader, DirectoryReader& keys, CodeDirectory& directory) {
    if (keys.take(Key::Entitlements) && !keys.data(directory.entitlements, limits::kPropertyListFileMax)) {
        return false;
    }
    if (keys.take(Key::Requirement) &&
        !(reader.text(directory.requirement.emplace(), limits::kFieldMax) && keys.done())) {
        return false;
    }
    return (!keys.take(Key::Constraint) || keys.data(directory.constraint, limits::kFieldMax)) && reader.ok();
}

Result<CodeDirectory> decode(Bytes bytes) {
    archive::DecodeBudget budget(bytes.size());
    archive::Reader reader(bytes, budget);
    CodeDirectory directory;
    std::size_t pairs = 0;
    if (bytes.size() > limits::kCodeDirectoryMax) {
        reader.fail(FormatError::LimitPassed, "too many bytes");
    } else if (reader.enterMap(pairs)) {
        DirectoryReader keys(reader, pairs);
        if (readIdentity(reader, keys, directory) && readCode(reader, keys, directory) &&
            readInformation(reader, keys, directory) && readConditions(reader, keys, directory) && keys.end()) {
            reader.leave();
            reader.end();
        }
    }
    if (!reader.ok()) {
        return reader.error("code directory");
    }
    return directory;
}

void writeKey(archive::Writer& writer, Key key) {
    writer.unsignedInteger(static_cast<std::uint64_t>(key));
}

std::size_t pairsOf(const CodeDirectory& directory) {
    const auto one = [](const auto& optional) { return std::size_t{optional.has_value()}; };
    return kRequiredKeys + one(directory.team) + 2 * one(directory.information) + one(directory.entitlements) +
           one(directory.requirement) + one(directory.constraint);
}

void write(archive::Writer& writer, const CodeDirectory& directory) {
    const auto bytes = [&](Key key, Bytes value) {
        writeKey(writer, key);
        writer.bytes(value);
    };
    const auto text = [&](Key key, std::string_view value) {
        writeKey(writer, key);
        writer.text(value);
    };
    writer.map(pairsOf(directory));
    writeKey(writer, Key::Version);
    writer.unsignedInteger(kVersion);
    text(Key::Identifier, directory.identifier);
    if (directory.team) {
        text(Key::Team, *directory.team);
    }
    text(Key::Format, directory.format);
    writeKey(writer, Key::CodeSize);
    writer.unsignedInteger(directory.codeSize);
    bytes(Key::CodeDigest, directory.codeDigest);
    if (directory.information) {
        bytes(Key::InformationDigest, directory.information->digest);
        bytes(Key::Information, directory.information->content);
    }
    if (directory.entitlements) {
        bytes(Key::Entitlements, *directory.entitlements);
    }
    if (directory.requirement) {
        text(Key::Requirement, *directory.requirement);
    }
    if (directory.constraint) {
        bytes(Key::Constraint, *directory.constraint);
    }
}

}  // namespace

Result<Data> encodeDirectory(const CodeDirectory& directory) {
    return withinMemory([&] {
        archive::Writer writer;
        write(writer, directory);
        Result<Data> bytes = writer.take();
        if (!bytes) {
            return bytes;
        }
        // What a reader would refuse is not signed.
        const Result<CodeDirectory> again = decode(*bytes);
        return again ? std::move(bytes) : Result<Data>(again.error());
    });
}

Result<CodeDirectory> decodeDirectory(Bytes bytes) {
    return withinMemory([&] { return decode(bytes); });
}

}  // namespace ksw::facts
