// code_directory.h: what a signature says of its code, in the form that is signed (docs/signatures.md).
// Neither hashes nor verifies.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include <kestrelwood/values/data.h>

#include "platform/base/result.h"

namespace ksw::facts {

using Sha256 = std::array<std::uint8_t, 32>;

/// The information property list of a bundle as it was when the code was signed.
struct SealedInformation {
    Sha256 digest{};  ///< Of `content`, which is also the bundle's file.
    Data content;

    friend bool operator==(const SealedInformation&, const SealedInformation&) = default;
};

/// A value; equal directories have equal bytes.
struct CodeDirectory {
    std::string identifier;
    std::optional<std::string> team;
    std::string format;
    std::uint64_t codeSize = 0;  ///< Bytes of the code, which lies at the file's beginning.
    Sha256 codeDigest{};
    std::optional<SealedInformation> information;
    std::optional<Data> entitlements;  ///< A property list.
    std::optional<std::string> requirement;
    std::optional<Data> constraint;

    friend bool operator==(const CodeDirectory&, const CodeDirectory&) = default;
};

/// The one encoding of the directory. Error: FormatError for what `decodeDirectory` would refuse.
Result<Data> encodeDirectory(const CodeDirectory& directory);

/// Reads a directory that is all of `bytes`. Accepts only what `encodeDirectory` writes. Error: FormatError; bounds
/// are those of platform/base/limits.h. Never throws.
Result<CodeDirectory> decodeDirectory(Bytes bytes);

}  // namespace ksw::facts
