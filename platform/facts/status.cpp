#include "platform/facts/status.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>

#include "platform/base/never_destroyed.h"

namespace ksw::facts {

namespace {

constexpr std::array kTexts{
    StatusText{CodeStatus::Parameter, "a parameter is wrong"},
    StatusText{CodeStatus::Unsigned, "the code is not signed"},
    StatusText{CodeStatus::NotFound, "there is no such file"},
    StatusText{CodeStatus::NotPermitted, "reading is not permitted"},
    StatusText{CodeStatus::NotReadable, "the file cannot be read"},
    StatusText{CodeStatus::NotCode, "neither a regular file nor an application bundle"},
    StatusText{CodeStatus::TooLarge, "the code is larger than what is verified"},
    StatusText{CodeStatus::ChangedMeanwhile, "the file changed while it was read"},
    StatusText{CodeStatus::NoMemory, "there is not enough memory"},
    StatusText{CodeStatus::BadBundle, "the bundle has no readable information property list or no main executable"},
    StatusText{CodeStatus::SignatureMalformed, "what stands in the signature's place is not a signature"},
    StatusText{CodeStatus::DirectoryMalformed, "the signature's code directory is malformed"},
    StatusText{CodeStatus::CodeAltered, "the code differs from what was signed"},
    StatusText{CodeStatus::InformationAltered, "the information property list differs from what was signed"},
    StatusText{CodeStatus::MessageMalformed, "the signature's message is malformed"},
    StatusText{CodeStatus::SignerCount, "the signature does not have exactly one signer"},
    StatusText{CodeStatus::SignatureWrong, "the signature does not belong to the code directory"},
    StatusText{CodeStatus::WeakAlgorithm, "an algorithm or a key is weaker than what is accepted"},
    StatusText{CodeStatus::TooManyCertificates, "the signature has too many certificates"},
    StatusText{CodeStatus::WrongPurpose, "a certificate is not meant for signing code"},
    StatusText{CodeStatus::Expired, "a certificate has expired"},
    StatusText{CodeStatus::NotYetValid, "a certificate is not yet valid"},
    StatusText{CodeStatus::NotTrusted, "the signer's chain leads to no trusted certificate"},
    StatusText{CodeStatus::ChainTooLong, "the signer's chain is too long"},
    StatusText{CodeStatus::ChainInvalid, "the signer's chain is not valid"},
    StatusText{CodeStatus::RequirementNotMet, "the code does not meet the requirement"},
    StatusText{CodeStatus::ProcessGone, "the process has ended"},
    StatusText{CodeStatus::ProcessChanged, "the process became another program meanwhile"},
    StatusText{CodeStatus::NoPath, "what the process runs is no longer a file with a path"},
    StatusText{CodeStatus::NoCryptography, "the host has no usable libcrypto"},
    StatusText{CodeStatus::KeyUnusable, "the key cannot be used for signing"},
    StatusText{CodeStatus::CertificateUnusable, "the certificates cannot be used for signing"},
    StatusText{CodeStatus::KeyMismatch, "the key does not belong to the first certificate"},
    StatusText{CodeStatus::CannotHold, "the file cannot hold a signature"},
    StatusText{CodeStatus::NotWritable, "the signed file cannot be written"},
    StatusText{CodeStatus::RequirementMalformed, "the requirement cannot be read"},
};

}  // namespace

std::span<const StatusText> statusTexts() {
    return kTexts;
}

std::string_view statusText(std::int64_t code) {
    const auto* const found = std::find_if(kTexts.begin(), kTexts.end(), [&](const StatusText& row) {
        return static_cast<std::int64_t>(row.status) == code;
    });
    return found == kTexts.end() ? "unknown status" : found->text;
}

Error statusError(CodeStatus status, std::string_view detail) {
    const auto code = static_cast<std::int64_t>(status);
    std::string text(statusText(code));
    if (!detail.empty()) {
        text.append(": ").append(detail);
    }
    return {kStatusErrorDomain, code, text};
}

const Error& noMemoryStatus() {
    static NeverDestroyed<Error> error(statusError(CodeStatus::NoMemory));
    return *error;
}

Error fileError(const Error& callError) {
    switch (callError.code()) {
        case ENOENT:
        case ENOTDIR:
        case ENAMETOOLONG:
            return statusError(CodeStatus::NotFound, callError.localizedDescription());
        case EACCES:
        case EPERM:
            return statusError(CodeStatus::NotPermitted, callError.localizedDescription());
        case ENXIO:
        case ENODEV:
            return statusError(CodeStatus::NotCode, callError.localizedDescription());
        case ENOMEM:
            return statusError(CodeStatus::NoMemory, callError.localizedDescription());
        default:
            return statusError(CodeStatus::NotReadable, callError.localizedDescription());
    }
}

Error processError(const Error& callError) {
    const bool isGone = callError.code() == ESRCH || callError.code() == ENOENT;
    return isGone ? statusError(CodeStatus::ProcessGone, callError.localizedDescription()) : fileError(callError);
}

}  // namespace ksw::facts
