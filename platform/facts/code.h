// code.h: code, as it lies in the file system or as it runs, and what its signature says of it.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include <kestrelwood/values/audit_token.h>

#include "platform/base/result.h"
#include "platform/facts/code_facts.h"
#include "platform/facts/requirement.h"
#include "platform/facts/verifier.h"

namespace ksw::facts {

/// How thoroughly code is checked.
enum class Checks : std::uint32_t {
    Default = 0,
    /// The files in a bundle beside its main executable and its information property list are not looked at. They
    /// are sealed by no signature, so without it the answer is the same.
    WithoutResources = 4,
};

/// The code at a path: an executable, a script, any other file, or an application bundle, which is signed through
/// its main executable. The files are opened when the object is made and judged once, by those descriptors. Copies
/// share. Any thread; `facts` and `checkValidity` block for the reading when they are the first. Errors are
/// `CodeStatus` in `kStatusErrorDomain`; nothing throws.
class StaticCode {
public:
    /// Error: `NotFound`, `NotPermitted`, `NotCode`, `BadBundle`. Unsigned code is no error here.
    static Result<StaticCode> open(const std::string& path, Verifier& verifier = Verifier::shared());
    /// The same for code that goes by `path` and is read at `readingPath`, which leads to a file that is held open.
    static Result<StaticCode> openHeld(const std::string& path, const std::string& readingPath,
                                       Verifier& verifier = Verifier::shared());

    /// What the signature says; the error says why there is none that holds.
    Result<std::shared_ptr<const CodeFacts>> facts() const;

    /// What the file says of itself, whether or not that holds; without a chain. For showing only.
    Result<CodeFacts> claims() const;

    /// Whether there is a signature that holds and, if one is given, whether the code meets the requirement. An
    /// ad-hoc signature holds when the code is as it was.
    Status checkValidity(Checks checks, const Requirement* requirement = nullptr) const;

    /// As it was given.
    const std::string& path() const;

private:
    struct State;
    explicit StaticCode(std::shared_ptr<State> state) : state_(std::move(state)) {}
    std::shared_ptr<State> state_;
};

/// The code that a process runs, by the process's own descriptor: of a script that is its interpreter; of an
/// executable that was deleted or replaced, what the process runs. Copies share; threads and errors as above.
class RunningCode {
public:
    /// Error: `ProcessGone` when the token's process has ended, whoever has its number now; `ProcessChanged` when
    /// it became another program just then; `NotPermitted` when its executable may not be looked at.
    static Result<RunningCode> open(const AuditToken& token, Verifier& verifier = Verifier::shared());

    /// As for `StaticCode`; also the errors above when the process has ended, or become another program, before the
    /// answer was ready.
    Result<std::shared_ptr<const CodeFacts>> facts() const;
    Result<CodeFacts> claims() const;
    Status checkValidity(Checks checks, const Requirement* requirement = nullptr) const;

    /// Where the executable lies. Error: `NoPath` when it was deleted or replaced, or never had a path.
    Result<std::string> path() const;

private:
    struct State;
    explicit RunningCode(std::shared_ptr<State> state) : state_(std::move(state)) {}
    std::shared_ptr<State> state_;
};

}  // namespace ksw::facts
