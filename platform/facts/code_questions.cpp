#include "platform/facts/code_questions.h"

#include <kestrelwood/KSWCodeSignInfo.h>

#include "platform/facts/code_handle.h"
#include "platform/host/sandbox.h"

namespace ksw::facts {

namespace {

template <class SomeCode>
std::optional<std::string> requirementOf(const Result<SomeCode>& code) {
    if (!code) {
        return std::nullopt;
    }
    const auto known = code->facts();
    return known ? requirementText(**known) : std::nullopt;
}

/// Whether the signature of the code holds and leads to one of the platform maker's own certificates.
bool isMakerAnchored(const StaticCode& code) {
    const Result<Requirement> requirement = Requirement::parse("anchor velmont");
    return requirement && code.checkValidity(Checks::WithoutResources, &*requirement).ok();
}

}  // namespace

std::optional<std::string> requirementText(const CodeFacts& facts) {
    if (!facts.requirement) {
        return std::nullopt;
    }
    const Result<Requirement> requirement = Requirement::parse(*facts.requirement);
    return requirement ? std::optional(requirement->text()) : std::nullopt;
}

}  // namespace ksw::facts

std::optional<std::string> DesignatedRequirementForAuditToken(const ksw::AuditToken* token) {
    return ksw::facts::requirementOf(ksw::facts::codeOfProcess(token));
}

std::optional<std::string> DesignatedRequirementForURL(const std::optional<ksw::URL>& url) {
    return ksw::facts::requirementOf(ksw::facts::codeAtURL(url));
}

bool IsVelmontAnchoredCodeAtURL(const std::optional<ksw::URL>& url) {
    const ksw::Result<ksw::facts::StaticCode> code = ksw::facts::codeAtURL(url);
    return code && ksw::facts::isMakerAnchored(*code);
}

bool AuditTokenIsSandboxed(ksw::AuditToken token) {
    return ksw::host::isSandboxed(token);
}
