#include "platform/facts/verifier.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "platform/base/never_destroyed.h"
#include "platform/facts/cms.h"
#include "platform/facts/status.h"
#include "platform/facts/within_memory.h"
#include "platform/plist/property_list.h"

namespace ksw::facts {

namespace {

constexpr std::int64_t kNanosecondsPerSecond = 1'000'000'000;

/// Nanoseconds since 1970.
std::int64_t nowOf(const host::Clock& clock) {
    const double seconds = clock.wall().secondsSinceReference + static_cast<double>(kReferenceDateUnixSeconds);
    return static_cast<std::int64_t>(seconds * static_cast<double>(kNanosecondsPerSecond));
}

Result<std::optional<Dictionary>> readDictionary(const std::optional<Data>& bytes) {
    if (!bytes) {
        return std::optional<Dictionary>();
    }
    Result<Value> value = plist::read(*bytes);
    Dictionary* dictionary = value ? value->as<Dictionary>() : nullptr;
    if (dictionary == nullptr) {
        return statusError(CodeStatus::DirectoryMalformed, "a property list that is no dictionary");
    }
    return std::optional<Dictionary>(std::move(*dictionary));
}

/// What the directory says, as facts.
Result<CodeFacts> factsOf(const CodeDirectory& directory) {
    CodeFacts facts;
    facts.identifier = directory.identifier;
    facts.team = directory.team;
    facts.format = directory.format;
    facts.requirement = directory.requirement;
    facts.constraint = directory.constraint;
    std::optional<Data> information;
    if (directory.information) {
        information = directory.information->content;
    }
    Result<std::optional<Dictionary>> list = readDictionary(information);
    Result<std::optional<Dictionary>> entitlements = readDictionary(directory.entitlements);
    if (!list || !entitlements) {
        return list ? entitlements.error() : list.error();
    }
    facts.informationPropertyList = std::move(*list);
    facts.entitlements = std::move(*entitlements);
    return facts;
}

const char* sourceOf(const StoredSignature& signature) {
    return signature.message ? "embedded" : "ad-hoc";
}

/// That the directory speaks of a file of this form and size.
Status checkForm(const StoredSignature& signature) {
    std::string_view format = signature.directory.format;
    const bool saysBundle = format.starts_with(kBundleFormatPrefix);
    if (saysBundle) {
        format.remove_prefix(kBundleFormatPrefix.size());
    }
    if (format != formatOf(signature.kind) || saysBundle != signature.directory.information.has_value()) {
        return statusError(CodeStatus::DirectoryMalformed, "its format is not the file's");
    }
    if (signature.directory.codeSize != signature.place.codeSize) {
        return statusError(CodeStatus::CodeAltered);
    }
    return {};
}

Status expectDigest(const Result<Sha256>& digest, const Sha256& expected, CodeStatus otherwise) {
    if (!digest) {
        return digest.error();
    }
    return *digest == expected ? Status() : statusError(otherwise);
}

Status checkDigests(const LibCrypto& crypto, const CodeDirectory& directory, const CodeFile& code) {
    if (directory.information) {
        const SealedInformation& sealed = *directory.information;
        Status status =
            expectDigest(sha256Of(crypto, sealed.content), sealed.digest, CodeStatus::DirectoryMalformed);
        if (!status) {
            return status;
        }
    }
    if (directory.codeSize > limits::kSignedCodeMax) {
        return statusError(CodeStatus::TooLarge);
    }
    return expectDigest(sha256Of(crypto, code, directory.codeSize), directory.codeDigest, CodeStatus::CodeAltered);
}

/// Reads and checks everything.
Result<Verified> verify(const LibCrypto& crypto, const CodeFile& code, const FileStamp& stamp,
                        const TrustAnchors& anchors, std::int64_t time) {
    Result<StoredSignature> signature = readSignature(code, stamp);
    if (!signature) {
        return signature.error();
    }
    if (Status status = checkForm(*signature); !status) {
        return status.error();
    }
    Result<Signer> signer = Signer{};
    if (signature->message) {
        // Before the code is hashed: a signer whom nobody trusts cannot make this host read gigabytes in vain.
        signer = verifyMessage(crypto, *signature->message, signature->directoryBytes, anchors, time);
        if (!signer) {
            return signer.error();
        }
    }
    Result<CodeFacts> facts = factsOf(signature->directory);
    if (!facts) {
        return facts.error();
    }
    if (facts->team == kPlatformTeam && signer->anchor != Anchor::Maker) {
        return statusError(CodeStatus::NotTrusted, "its team is the platform's");
    }
    if (Status status = checkDigests(crypto, signature->directory, code); !status) {
        return status.error();
    }
    facts->source = sourceOf(*signature);
    facts->chain = std::move(signer->chain);
    facts->anchor = signer->anchor;
    Verified verified{std::make_shared<const CodeFacts>(std::move(*facts)), std::nullopt, signer->validity,
                      signature->directoryBytes.size() + (signature->message ? signature->message->size() : 0)};
    if (signature->directory.information) {
        verified.informationDigest = signature->directory.information->digest;
    }
    return verified;
}

Status checkInformation(const LibCrypto& crypto, const Verified& verified, const Data& information) {
    if (!verified.informationDigest) {
        return statusError(CodeStatus::InformationAltered, "it was not signed with the code");
    }
    return expectDigest(sha256Of(crypto, information), *verified.informationDigest, CodeStatus::InformationAltered);
}

}  // namespace

Result<CodeKind> kindOf(const CodeFile& file, const FileStamp& stamp) {
    std::array<std::uint8_t, kCodeHeadSize> head{};
    const std::span<std::uint8_t> part = std::span(head).first(std::min<std::uint64_t>(head.size(), stamp.size));
    if (Status status = file.read(0, part); !status) {
        return status.error();
    }
    return codeKindOf(part);
}

Result<std::optional<SignaturePlace>> findSignature(const CodeFile& file, const FileStamp& stamp, CodeKind kind) {
    std::array<std::uint8_t, kSignatureTailSize> tail{};
    if (stamp.size < tail.size()) {
        return std::optional<SignaturePlace>();
    }
    if (Status status = file.read(stamp.size - tail.size(), tail); !status) {
        return status.error();
    }
    Result<std::optional<SignaturePlace>> place = findSignature(kind, tail, stamp.size);
    if (!place) {
        return statusError(CodeStatus::SignatureMalformed, place.error().localizedDescription());
    }
    return place;
}

Result<StoredSignature> readSignature(const CodeFile& file, const FileStamp& stamp) {
    const Result<CodeKind> kind = kindOf(file, stamp);
    if (!kind) {
        return kind.error();
    }
    const Result<std::optional<SignaturePlace>> place = findSignature(file, stamp, *kind);
    if (!place || !*place) {
        return place ? statusError(CodeStatus::Unsigned) : place.error();
    }
    StoredSignature signature;
    signature.kind = *kind;
    signature.place = **place;
    Data stored(signature.place.storedSize);
    if (Status status = file.read(signature.place.codeSize, stored); !status) {
        return status.error();
    }
    Result<SignatureParts> parts = decodeSignature(signature.kind, stored);
    if (!parts) {
        return statusError(CodeStatus::SignatureMalformed, parts.error().localizedDescription());
    }
    Result<CodeDirectory> directory = decodeDirectory(parts->directory);
    if (!directory) {
        return statusError(CodeStatus::DirectoryMalformed, directory.error().localizedDescription());
    }
    signature.directory = std::move(*directory);
    signature.directoryBytes = std::move(parts->directory);
    signature.message = std::move(parts->message);
    return signature;
}

Result<CodeFacts> claimsOf(const CodeFile& file) {
    return orNoMemory([&]() -> Result<CodeFacts> {
        const Result<FileStamp> stamp = file.stamp();
        const Result<StoredSignature> signature =
            stamp ? readSignature(file, *stamp) : Result<StoredSignature>(stamp.error());
        if (!signature) {
            return signature.error();
        }
        Result<CodeFacts> facts = factsOf(signature->directory);
        if (facts) {
            facts->source = sourceOf(*signature);
        }
        return facts;
    });
}

Verifier& Verifier::shared() {
    static NeverDestroyed<Verifier> verifier;
    return *verifier;
}

Result<std::shared_ptr<const CodeFacts>> Verifier::judge(const CodeFile& code, const Data* information) {
    return orNoMemory([&]() -> Result<std::shared_ptr<const CodeFacts>> {
        const LibCrypto* const crypto = LibCrypto::shared();
        if (crypto == nullptr) {
            return statusError(CodeStatus::Unsigned);
        }
        Result<Verified> verified = judgeFile(*crypto, code);
        if (!verified) {
            return verified.error();
        }
        Status status = information == nullptr ? Status() : checkInformation(*crypto, *verified, *information);
        return status ? Result<std::shared_ptr<const CodeFacts>>(std::move(verified->facts)) : status.error();
    });
}

std::optional<VerifiedState> Verifier::known(const FileStamp& stamp) {
    const Result<VerifiedState> state = orNoMemory([&]() -> Result<VerifiedState> {
        const LibCrypto* const crypto = LibCrypto::shared();
        if (crypto == nullptr) {
            return statusError(CodeStatus::Unsigned);
        }
        const std::int64_t now = nowOf(clock_);
        const VerifiedState current{stamp, trust_.current(*crypto, now)->generation()};
        return files_.find(current, now / kNanosecondsPerSecond) ? Result<VerifiedState>(current)
                                                                 : statusError(CodeStatus::Unsigned);
    });
    return state ? std::optional(*state) : std::nullopt;
}

Result<Verified> Verifier::judgeFile(const LibCrypto& crypto, const CodeFile& code) {
    const std::int64_t now = nowOf(clock_);
    const std::int64_t time = now / kNanosecondsPerSecond;
    const std::shared_ptr<const TrustAnchors> anchors = trust_.current(crypto, now);
    const Result<FileStamp> before = code.stamp();
    if (!before) {
        return before.error();
    }
    const VerifiedState state{*before, anchors->generation()};
    if (std::optional<Verified> known = files_.find(state, time)) {
        return std::move(*known);
    }
    Result<Verified> verified = verify(crypto, code, *before, *anchors, time);
    if (!verified) {
        return verified;
    }
    const Result<FileStamp> after = code.stamp();
    if (!after) {
        return after.error();
    }
    // Another name, or no more name, is no other content.
    if (after->size != before->size || after->modified != before->modified) {
        return statusError(CodeStatus::ChangedMeanwhile);
    }
    // Anybody can seal files ad hoc, as many as he likes and with lists that fill the memory.
    const bool hasSigner = verified->facts->anchor != Anchor::None;
    // What changed a moment ago could change again and bear the same time; it is read again.
    if (hasSigner && *after == *before && isSettled(std::max(after->modified, after->changed), now)) {
        files_.remember(state, *verified);
    }
    return verified;
}

}  // namespace ksw::facts
