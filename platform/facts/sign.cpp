#include "platform/facts/sign.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "platform/base/paths.h"
#include "platform/facts/bundle.h"
#include "platform/facts/cms.h"
#include "platform/facts/launch_constraint.h"
#include "platform/facts/replacement.h"
#include "platform/facts/requirement.h"
#include "platform/facts/status.h"
#include "platform/facts/verifier.h"
#include "platform/facts/within_memory.h"
#include "platform/host/sys.h"
#include "platform/plist/property_list.h"

namespace ksw::facts {

namespace {

/// The file that carries the signature, by its name in an open folder.
struct Target {
    UniqueFd folder;
    std::string name;
    CodeFile file;
    std::optional<Data> information;  ///< Of a bundle.
    FileStamp stamp;
    CodeKind kind = CodeKind::Other;
    std::optional<SignaturePlace> place;  ///< Of the signature that is there.

    std::uint64_t codeSize() const { return place ? place->codeSize : stamp.size; }
};

Result<Target> openFile(const std::string& path) {
    const Result<std::string> place = host::sys::realPath(path);
    if (!place) {
        return fileError(place.error());
    }
    const std::string above(folderOf(*place));
    if (above.empty()) {
        return statusError(CodeStatus::NotCode, path);
    }
    std::string name(lastComponent(*place));
    Result<UniqueFd> folder = host::sys::open(above, O_RDONLY | O_DIRECTORY);
    if (!folder) {
        return fileError(folder.error());
    }
    Result<CodeFile> file = CodeFile::openAt(folder->get(), name);
    if (!file) {
        return file.error();
    }
    return Target{std::move(*folder), std::move(name), std::move(*file), {}, {}, {}, {}};
}

Result<Target> openBundleFile(const std::string& path) {
    Result<BundleFiles> bundle = openBundle(path);
    if (!bundle) {
        return bundle.error();
    }
    return Target{std::move(bundle->executableFolder),
                  std::move(bundle->executableName),
                  std::move(bundle->executable),
                  std::move(bundle->information),
                  {},
                  {},
                  {}};
}

Result<Target> openTarget(const std::string& path) {
    Result<Target> target = isBundle(path) ? openBundleFile(path) : openFile(path);
    if (!target) {
        return target;
    }
    const Result<FileStamp> stamp = target->file.stamp();
    if (!stamp) {
        return stamp.error();
    }
    target->stamp = *stamp;
    const Result<CodeKind> kind = kindOf(target->file, *stamp);
    if (!kind) {
        return kind.error();
    }
    target->kind = *kind;
    Result<std::optional<SignaturePlace>> place = findSignature(target->file, *stamp, *kind);
    if (!place) {
        return place.error();
    }
    target->place = *place;
    return target;
}

Status checkCanHold(const Target& target) {
    if (target.codeSize() > limits::kSignedCodeMax) {
        return statusError(CodeStatus::TooLarge);
    }
    std::uint8_t last = 0;
    if (target.codeSize() == 0) {
        return statusError(CodeStatus::CannotHold, "it is empty");
    }
    if (Status status = target.file.read(target.codeSize() - 1, {&last, 1}); !status) {
        return status;
    }
    // The line of the signature would be the rest of that line.
    if (target.kind == CodeKind::Script && last == '\\') {
        return statusError(CodeStatus::CannotHold, "the script ends in a backslash");
    }
    return {};
}

/// Copies the code, and gives the digest of what was copied.
Result<Sha256> copyCode(const LibCrypto& crypto, const Target& target, Replacement& replacement) {
    Sha256Stream stream(crypto);
    Data chunk(static_cast<std::size_t>(std::min<std::uint64_t>(target.codeSize(), kCodeChunkSize)));
    for (std::uint64_t done = 0; done < target.codeSize();) {
        const std::uint64_t left = target.codeSize() - done;
        const auto part =
            std::span(chunk).first(static_cast<std::size_t>(std::min<std::uint64_t>(left, chunk.size())));
        if (Status status = target.file.read(done, part); !status) {
            return status.error();
        }
        if (Status status = replacement.append(part); !status) {
            return status.error();
        }
        stream.add(part);
        done += part.size();
    }
    return stream.finish();
}

/// What the code must be by default: signed for this team, else by this organization.
ConstraintFacts defaultConditions(const LibCrypto& crypto, const SigningRequest& request) {
    ConstraintFacts facts;
    facts.identifier = request.identifier;
    facts.anchor = Anchor::Trusted;
    facts.team = request.team;
    if (!request.team) {
        const std::vector<OwnedCertificate> chain = readCertificates(crypto, request.chain, 1);
        const Certificate signer = chain.empty() ? Certificate() : certificateFacts(crypto, chain.front().get());
        if (!signer.organizations.empty() && !signer.organizations.front().empty()) {
            facts.organization = signer.organizations.front();
        }
    }
    return facts;
}

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char character : text) {
        if (character == '"' || character == '\\') {
            result += '\\';
        }
        result += character;
    }
    return result + "\"";
}

std::string requirementOf(const ConstraintFacts& facts) {
    std::string text = "anchor trusted and identifier " + quoted(*facts.identifier);
    if (facts.team) {
        text += " and team " + quoted(*facts.team);
    }
    if (facts.organization) {
        text += " and certificate leaf[subject.O] = " + quoted(*facts.organization);
    }
    return text;
}

/// Sets what is asked of the code: what the request says, else what follows from its signer.
Status setConditions(const LibCrypto& crypto, const SigningRequest& request, CodeDirectory& directory) {
    std::optional<std::string> text = request.requirement;
    if (request.key) {
        const ConstraintFacts conditions = defaultConditions(crypto, request);
        Result<Data> constraint = encodedRequirement(conditions);
        if (!constraint) {
            return statusError(CodeStatus::Parameter, constraint.error().localizedDescription());
        }
        directory.constraint = std::move(*constraint);
        if (!text) {
            text = requirementOf(conditions);
        }
    }
    if (!text) {
        return {};
    }
    const Result<Requirement> requirement = Requirement::parse(*text);
    if (!requirement) {
        return statusError(CodeStatus::RequirementMalformed, requirement.error().localizedDescription());
    }
    directory.requirement = requirement->text();
    return {};
}

Result<CodeDirectory> directoryOf(const LibCrypto& crypto, const Target& target, const SigningRequest& request) {
    CodeDirectory directory;
    directory.identifier = request.identifier;
    directory.team = request.team;
    directory.codeSize = target.codeSize();
    directory.entitlements = request.entitlements;
    if (target.information) {
        const Result<Sha256> digest = sha256Of(crypto, *target.information);
        if (!digest) {
            return digest.error();
        }
        directory.information = SealedInformation{*digest, *target.information};
        directory.format = kBundleFormatPrefix;
    }
    directory.format += formatOf(target.kind);
    if (request.entitlements) {
        const Result<Value> entitlements = plist::read(*request.entitlements);
        if (!entitlements || entitlements->as<Dictionary>() == nullptr) {
            return statusError(CodeStatus::Parameter, "the entitlements are no dictionary in a property list");
        }
    }
    if (Status status = setConditions(crypto, request, directory); !status) {
        return status.error();
    }
    return directory;
}

/// The signature's bytes.
Result<Data> signatureOf(const LibCrypto& crypto, const Target& target, const SigningRequest& request,
                         const CodeDirectory& directory) {
    Result<Data> bytes = encodeDirectory(directory);
    if (!bytes) {
        return statusError(CodeStatus::Parameter, bytes.error().localizedDescription());
    }
    SignatureParts parts{std::move(*bytes), std::nullopt};
    if (request.key) {
        Result<Data> message = makeMessage(crypto, parts.directory, *request.key, request.chain);
        if (!message) {
            return message;
        }
        parts.message = std::move(*message);
    }
    Result<Data> signature = encodeSignature(target.kind, parts);
    return signature ? std::move(signature)
                     : Result<Data>(statusError(CodeStatus::Parameter, signature.error().localizedDescription()));
}

Status signFile(const LibCrypto& crypto, const std::string& path, const SigningRequest& request) {
    const Result<Target> target = openTarget(path);
    if (!target) {
        return target.error();
    }
    if (Status status = checkCanHold(*target); !status) {
        return status;
    }
    Result<CodeDirectory> directory = directoryOf(crypto, *target, request);
    if (!directory) {
        return directory.error();
    }
    Result<Replacement> replacement = Replacement::create(target->folder.get());
    if (!replacement) {
        return replacement.error();
    }
    const Result<Sha256> digest = copyCode(crypto, *target, *replacement);
    if (!digest) {
        return digest.error();
    }
    directory->codeDigest = *digest;
    const Result<Data> signature = signatureOf(crypto, *target, request, *directory);
    if (!signature) {
        return signature.error();
    }
    if (Status status = replacement->append(*signature); !status) {
        return status;
    }
    return replacement->commit(target->file, target->stamp, target->name);
}

Status stripFile(const LibCrypto& crypto, const std::string& path) {
    const Result<Target> target = openTarget(path);
    if (!target) {
        return target.error();
    }
    if (!target->place) {
        return statusError(CodeStatus::Unsigned);
    }
    Result<Replacement> replacement = Replacement::create(target->folder.get());
    if (!replacement) {
        return replacement.error();
    }
    const Result<Sha256> digest = copyCode(crypto, *target, *replacement);
    return digest ? replacement->commit(target->file, target->stamp, target->name) : Status(digest.error());
}

/// Runs it with the host's cryptography.
template <class Work>
Status withCryptography(Work work) {
    return orNoMemory([&]() -> Status {
        const LibCrypto* const crypto = LibCrypto::shared();
        return crypto == nullptr ? Status(statusError(CodeStatus::NoCryptography)) : work(*crypto);
    });
}

}  // namespace

Status sign(const std::string& path, const SigningRequest& request) {
    return withCryptography([&](const LibCrypto& crypto) { return signFile(crypto, path, request); });
}

Status strip(const std::string& path) {
    return withCryptography([&](const LibCrypto& crypto) { return stripFile(crypto, path); });
}

}  // namespace ksw::facts
