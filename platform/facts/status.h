// status.h: the status codes of the code-signature service. One table; docs/signatures.md shows it to people.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include <kestrelwood/values/error.h>

namespace ksw::facts {

/// Why there is no answer about code, or why code is not signed as it should be. The numbers are in
/// `kStatusErrorDomain`, stable, and travel to callers.
enum class CodeStatus : std::int32_t {
    Parameter = -50,
    Unsigned = -67062,

    // The file.
    NotFound = -70001,
    NotPermitted = -70002,
    NotReadable = -70003,
    NotCode = -70004,
    TooLarge = -70005,
    ChangedMeanwhile = -70006,
    NoMemory = -70007,
    BadBundle = -70008,

    // The signature.
    SignatureMalformed = -70010,
    DirectoryMalformed = -70011,
    CodeAltered = -70012,
    InformationAltered = -70013,
    MessageMalformed = -70014,
    SignerCount = -70015,
    SignatureWrong = -70016,
    WeakAlgorithm = -70017,
    TooManyCertificates = -70018,

    // The signer.
    WrongPurpose = -70020,
    Expired = -70021,
    NotYetValid = -70022,
    NotTrusted = -70023,
    ChainTooLong = -70024,
    ChainInvalid = -70025,
    RequirementNotMet = -70026,

    // The process.
    ProcessGone = -70030,
    ProcessChanged = -70031,
    NoPath = -70032,

    // Signing.
    NoCryptography = -70040,
    KeyUnusable = -70041,
    CertificateUnusable = -70042,
    KeyMismatch = -70043,
    CannotHold = -70044,
    NotWritable = -70045,
    RequirementMalformed = -70046,
};

struct StatusText {
    CodeStatus status;
    std::string_view text;
};

/// Every status with its text, in descending order of the numbers.
std::span<const StatusText> statusTexts();

/// The text of a status; "unknown status" for a number that is none.
std::string_view statusText(std::int64_t code);

/// An error of this status; its text is the status's own, with `": DETAIL"` behind it when there is a detail.
Error statusError(CodeStatus status, std::string_view detail = {});

/// The error of the status `NoMemory`, made on first use: to hand it out takes no memory.
const Error& noMemoryStatus();

inline bool isStatus(const Error& error, CodeStatus status) {
    return error.code() == static_cast<std::int64_t>(status) && error.domain() == kStatusErrorDomain;
}

/// The status that says what a failed system call means for code: not found, not permitted, not readable.
Error fileError(const Error& callError);
/// The same of a call about a process or what it runs: a process that is not there is gone.
Error processError(const Error& callError);

}  // namespace ksw::facts
