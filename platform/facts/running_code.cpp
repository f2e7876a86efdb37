#include <utility>

#include "platform/facts/code.h"
#include "platform/facts/judgement.h"
#include "platform/facts/status.h"
#include "platform/facts/within_memory.h"
#include "platform/host/peer_identity.h"
#include "platform/host/process_facts.h"
#include "platform/host/sys.h"

namespace ksw::facts {

namespace {

std::string executableLink(pid_t pid) {
    return "/proc/" + std::to_string(pid) + "/exe";
}

bool isSameFile(const struct ::statx& one, const struct ::statx& other) {
    return one.stx_ino == other.stx_ino && one.stx_dev_major == other.stx_dev_major &&
           one.stx_dev_minor == other.stx_dev_minor;
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
    return isSameFile(*now, *opened) ? Status() : statusError(CodeStatus::ProcessChanged);
}

Result<RunningCode> RunningCode::open(const AuditToken& token, Verifier& verifier) {
    return orNoMemory([&]() -> Result<RunningCode> {
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
    });
}

Result<std::shared_ptr<const CodeFacts>> RunningCode::facts() const {
    return orNoMemory([this] {
        return state_->judgement.get([this]() -> JudgedFacts {
            JudgedFacts facts = state_->verifier.judge(state_->code);
            // The hashing took its time.
            const Status status = state_->recheck();
            return status ? std::move(facts) : JudgedFacts(status.error());
        });
    });
}

Result<CodeFacts> RunningCode::claims() const {
    return orNoMemory([this] {
        Result<CodeFacts> claimed = claimsOf(state_->code);
        const Status status = state_->recheck();
        return status ? std::move(claimed) : Result<CodeFacts>(status.error());
    });
}

Status RunningCode::checkValidity(Checks, const Requirement* requirement) const {
    return orNoMemory([&] { return meets(facts(), requirement); });
}

Result<std::string> RunningCode::path() const {
    return orNoMemory([this]() -> Result<std::string> {
        const Result<struct ::statx> named =
            host::sys::statx(state_->link, AT_SYMLINK_NOFOLLOW, STATX_TYPE | STATX_INO);
        const Result<struct ::statx> opened = host::sys::statx(state_->code.fd(), STATX_TYPE | STATX_INO);
        if (!named || !opened || !isSameFile(*named, *opened)) {
            return statusError(CodeStatus::NoPath, state_->link);
        }
        return state_->link;
    });
}

}  // namespace ksw::facts
