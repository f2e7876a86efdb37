// signed_file.h: where a signature stands in a file, and how it is written there (docs/signatures.md). Behind the
// code, so that an ELF image runs as it did; in a script as its last line, a comment. Does no I/O, and neither
// decodes what was signed nor verifies.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include <kestrelwood/values/data.h>

#include "platform/base/result.h"

namespace ksw::facts {

/// What a file is, by its first bytes.
enum class CodeKind : std::uint8_t { Elf, Script, Other };

/// As many first bytes as it takes to tell.
inline constexpr std::size_t kCodeHeadSize = 4;
CodeKind codeKindOf(Bytes head);
/// "elf executable", "generic script", "generic file".
std::string_view formatOf(CodeKind kind);
/// What stands before the format of a bundle's main executable.
inline constexpr std::string_view kBundleFormatPrefix = "bundle with ";

/// How many bytes at the end of a file tell whether it is signed.
inline constexpr std::size_t kSignatureTailSize = 32;

/// The part of a file behind its code.
struct SignaturePlace {
    std::uint64_t codeSize = 0;  ///< The code is the bytes from 0 to here; the signature begins here.
    std::size_t storedSize = 0;  ///< Bytes of the signature before the tail.
};

/// Looks for a signature by the first and the last bytes of a file (all of a file that is shorter than the tail).
/// Absent when there is none. Error: FormatError when the tail is there but its length cannot be right.
Result<std::optional<SignaturePlace>> findSignature(CodeKind kind, Bytes tail, std::uint64_t fileSize);

/// A signature: what was signed, and the message that signs it.
struct SignatureParts {
    Data directory;
    std::optional<Data> message;  ///< Absent: nobody signed, the code is only sealed (ad hoc).

    friend bool operator==(const SignatureParts&, const SignatureParts&) = default;
};

/// Reads what stands between the code and the tail. Accepts only what `encodeSignature` writes. Error: FormatError.
/// Never throws.
Result<SignatureParts> decodeSignature(CodeKind kind, Bytes stored);

/// The bytes that are appended to the code, tail included. Error: FormatError when it is too large.
Result<Data> encodeSignature(CodeKind kind, const SignatureParts& parts);

}  // namespace ksw::facts
