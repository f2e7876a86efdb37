#include "platform/facts/code_handle.h"

#include <cerrno>
#include <stdexcept>

#include "platform/facts/status.h"
#include "platform/host/peer_identity.h"
#include "platform/host/sys_call.h"

namespace ksw {

namespace {

std::nullopt_t refuse(const Error& reason, std::optional<Error>* error) {
    if (error != nullptr) {
        *error = reason;
    }
    return std::nullopt;
}

template <class SomeCode>
std::optional<Code> handleOf(Result<SomeCode> code, std::optional<Error>* error) {
    if (!code) {
        return refuse(code.error(), error);
    }
    return CodeAccess::make(std::move(*code));
}

}  // namespace

std::optional<Code> Code::atURL(const URL& url, std::optional<Error>* error) {
    return handleOf(facts::codeAtURL(url), error);
}

std::optional<Code> Code::ofProcess(const AuditToken& process, std::optional<Error>* error) {
    return handleOf(facts::RunningCode::open(process), error);
}

std::optional<AuditToken> auditTokenForPid(pid_t pid, std::optional<Error>* error) {
    const Result<AuditToken> token = host::auditTokenForPid(pid);
    if (token) {
        return *token;
    }
    // No number of a process at all, or that of a thread beside the first: nothing runs under it either.
    const bool isNone = host::sys::isErrno(token.error(), EINVAL);
    return refuse(isNone ? facts::statusError(facts::CodeStatus::ProcessGone) : facts::processError(token.error()),
                  error);
}

namespace facts {

Result<std::shared_ptr<const CodeFacts>> factsOf(const Code& code) {
    return std::visit([](const auto& some) { return some.facts(); }, CodeAccess::state(code).code);
}

Result<StaticCode> codeAtURL(const std::optional<URL>& url) {
    if (!url || !(url->isFileURL() || url->scheme().empty())) {
        return statusError(CodeStatus::Parameter);
    }
    return StaticCode::open(url->path());
}

Result<RunningCode> codeOfProcess(const AuditToken* token) {
    if (token == nullptr) {
        throw std::invalid_argument("token is null");
    }
    return RunningCode::open(*token);
}

}  // namespace facts
}  // namespace ksw
