// verifier.h: judges an open file: is it signed, does the signature hold, what does it say.
#pragma once

#include <memory>
#include <optional>

#include "platform/base/limits.h"
#include "platform/facts/code_facts.h"
#include "platform/facts/code_file.h"
#include "platform/facts/signed_file.h"
#include "platform/facts/trust.h"
#include "platform/facts/verified_files.h"
#include "platform/host/clock.h"

namespace ksw::facts {

/// A signature as it stands in a file, read but not verified.
struct StoredSignature {
    SignaturePlace place;
    CodeKind kind = CodeKind::Other;
    CodeDirectory directory;
    Data directoryBytes;
    std::optional<Data> message;
};

/// What a file is. Error: why it cannot be read.
Result<CodeKind> kindOf(const CodeFile& file, const FileStamp& stamp);

/// Where the signature of a file stands; absent when it has none. Error: `SignatureMalformed`, or as above.
Result<std::optional<SignaturePlace>> findSignature(const CodeFile& file, const FileStamp& stamp, CodeKind kind);

/// Reads a file's signature without believing it. Error: `Unsigned`, `SignatureMalformed`, `DirectoryMalformed`, or
/// why the file cannot be read.
Result<StoredSignature> readSignature(const CodeFile& file, const FileStamp& stamp);

/// What a file's signature says, unverified and without a chain. Errors as above. Never throws.
Result<CodeFacts> claimsOf(const CodeFile& file);

/// Verifies, and remembers what it has verified. Any thread; blocks while a file is read and hashed. Never throws.
class Verifier {
public:
    explicit Verifier(const host::Clock& clock = host::systemClock(),
                      std::size_t filesMax = limits::kVerifiedFilesMax)
        : clock_(clock), files_(filesMax) {}

    /// The process's own.
    static Verifier& shared();

    /// What the signature of the code says, once all of it holds: the directory, the message, the chain, the bytes.
    /// `information` is the content of the information property list of the bundle whose main executable this is;
    /// null when the code stands for itself. The facts are always of the bytes that were hashed, whatever becomes
    /// of the file meanwhile. Error: `CodeStatus`.
    Result<std::shared_ptr<const CodeFacts>> judge(const CodeFile& code, const Data* information = nullptr);

    /// What the judgement of the file of this stamp rested on, if that file was judged, has a signer, and the
    /// judgement still holds; absent for any other. Costs a few looks at the file system, and none at the file.
    /// Never throws.
    std::optional<VerifiedState> known(const FileStamp& stamp);

private:
    Result<Verified> judgeFile(const LibCrypto& crypto, const CodeFile& code);

    const host::Clock& clock_;
    Trust trust_;
    VerifiedFiles files_;
};

}  // namespace ksw::facts
