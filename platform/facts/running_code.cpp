#include <new>
#include <utility>

#include "platform/facts/code.h"
#include "platform/facts/judgement.h"
#include "platform/facts/status.h"
#include "platform/host/peer_identity.h"
#include "platform/host/process_facts.h"
#include "platform/host/sys.h"

namespace ksw::facts {

namespace {

std::string executableLink(pid_t pid) {
    return "/proc/" + std::to_string(pid) + "/exe";
}

}  // namespace

struct RunningCode::State {
    State(const AuditToken& itsToken, UniqueFd itsProcess, CodeFile itsCode, std::string itsLink,
          Verifier& itsVerifier)
        : token(itsToken),
          process(std::move(itsProcess)),
          code(std::move(itsCode)),
          link(std::move(itsLink)),
          verifier(itsVerifier) {}

    /// That the process still lives and still runs this very file. While it lives its number is its own.
    Status recheck() const;

    const AuditToken token;
    const UniqueFd process;
    const CodeFile code;
    const std::string link;  // where the kernel said that the executable lies
    Verifier& verifier;
    Judgement judgement;
};

Status RunningCode::State::recheck() const {
    const Result<struct ::statx> now = host::sys::statx(executableLink(token.pid()), 0, STATX_TYPE | STATX_INO);
    const Result<struct ::statx> opened = host::sys::statx(code.fd(), STATX_TYPE | STATX_INO);
    if (host::hasEnded(process.get())) {
        return statusError(CodeStatus::ProcessGone);
    }
    if (!now || !opened) {
        return processError(now ? opened.error() : now.error());
    }
    const bool isSame = now->stx_ino == opened->stx_ino && now->stx_dev_major == opened->stx_dev_major &&
                        now->stx_dev_minor == opened->stx_dev_minor;
    return isSame ? Status() : statusError(CodeStatus::ProcessChanged);
}

Result<RunningCode> RunningCode::open(const AuditToken& token, Verifier& verifier) {
    try {
        Result<UniqueFd> process = host::openProcess(token);
        if (!process) {
            return processError(process.error());
        }
        const std::string link = executableLink(token.pid());
        Result<UniqueFd> executable = host::sys::open(link, O_RDONLY | O_NONBLOCK | O_NOCTTY);
        if (!executable) {
            return processError(executable.error());
        }
        Result<std::string> place = host::sys::readLink(link);
        if (!place) {
            return processError(place.error());
        }
        Result<CodeFile> code = CodeFile::adopt(std::move(*executable));
        if (!code) {
            return code.error();
        }
        auto state =
            std::make_shared<State>(token, std::move(*process), std::move(*code), std::move(*place), verifier);
        if (Status status = state->recheck(); !status) {
            return status.error();
        }
        return RunningCode(std::move(state));
    } catch (const std::bad_alloc&) {
        return statusError(CodeStatus::NoMemory);
    }
}

Result<std::shared_ptr<const CodeFacts>> RunningCode::facts() const {
    return state_->judgement.get([this]() -> JudgedFacts {
        JudgedFacts facts = state_->verifier.judge(state_->code);
        // The hashing took its time.
        const Status status = state_->recheck();
        return status ? std::move(facts) : JudgedFacts(status.error());
    });
}

Result<CodeFacts> RunningCode::claims() const {
    Result<CodeFacts> claimed = claimsOf(state_->code);
    const Status status = state_->recheck();
    return status ? std::move(claimed) : Result<CodeFacts>(status.error());
}

Status RunningCode::checkValidity(Checks, const Requirement* requirement) const {
    return meets(facts(), requirement);
}

Result<std::string> RunningCode::path() const {
    const Result<struct ::statx> named =
        host::sys::statx(state_->link, AT_SYMLINK_NOFOLLOW, STATX_TYPE | STATX_INO);
    const Result<struct ::statx> opened = host::sys::statx(state_->code.fd(), STATX_TYPE | STATX_INO);
    if (!named || !opened || named->stx_ino != opened->stx_ino || named->stx_dev_major != opened->stx_dev_major ||
        named->stx_dev_minor != opened->stx_dev_minor) {
        return statusError(CodeStatus::NoPath, state_->link);
    }
    return state_->link;
}

}  // namespace ksw::facts
