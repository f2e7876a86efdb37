// code.h: a handle of code that somebody may have signed: a file, a bundle, or what a process runs.
// Any thread; every operation blocks for the file system. On failure `error`, when given, receives the reason, in
// `kStatusErrorDomain` (docs/signatures.md); it is left as it was otherwise.
#pragma once

#include <memory>
#include <optional>
#include <utility>

#include <sys/types.h>

#include <kestrelwood/export.h>
#include <kestrelwood/values/audit_token.h>
#include <kestrelwood/values/error.h>
#include <kestrelwood/values/url.h>

namespace ksw {

/// Code whose signature is read when it is first asked for, and once. Copies share. What it stands for is open from
/// the beginning: what takes the file's name or the process's number later is not looked at.
class KSW_EXPORT Code {
public:
    /// The executable, script, other file or application bundle at a file URL. Absent when it cannot be opened.
    /// That nobody has signed it is no failure here.
    static std::optional<Code> atURL(const URL& url, std::optional<Error>* error = nullptr);

    /// What a process runs; of a script that is its interpreter. Absent when the process has ended, whoever has its
    /// number now, or its executable may not be looked at.
    static std::optional<Code> ofProcess(const AuditToken& process, std::optional<Error>* error = nullptr);

private:
    friend struct CodeAccess;
    struct State;

    explicit Code(std::shared_ptr<const State> state) : state_(std::move(state)) {}

    std::shared_ptr<const State> state_;
};

/// Names the process that has the number now. Absent when there is none or it has ended. A program that is told a
/// number asks once and keeps the token: the number may be another process's a moment later, the token never is.
KSW_EXPORT std::optional<AuditToken> auditTokenForPid(pid_t pid, std::optional<Error>* error = nullptr);

}  // namespace ksw
