#include <utility>

#include "platform/base/guarded.h"
#include "platform/facts/bundle.h"
#include "platform/facts/code.h"
#include "platform/facts/judgement.h"
#include "platform/facts/status.h"
#include "platform/facts/within_memory.h"

namespace ksw::facts {

struct StaticCode::State {
    State(std::string givenPath, CodeFile openCode, std::optional<Data> itsInformation, Verifier& itsVerifier)
        : path(std::move(givenPath)),
          code(std::move(openCode)),
          information(std::move(itsInformation)),
          verifier(itsVerifier) {}

    const std::string path;
    const CodeFile code;
    const std::optional<Data> information;  // the information property list of a bundle
    Verifier& verifier;
    Judgement judgement;
};

Result<StaticCode> StaticCode::open(const std::string& path, Verifier& verifier) {
    return openHeld(path, path, verifier);
}

Result<StaticCode> StaticCode::openHeld(const std::string& path, const std::string& readingPath,
                                        Verifier& verifier) {
    if (path.empty()) {
        return statusError(CodeStatus::Parameter);
    }
    return orNoMemory([&]() -> Result<StaticCode> {
        if (isBundle(path, readingPath)) {
            Result<BundleFiles> bundle = openBundle(path, readingPath);
            if (!bundle) {
                return bundle.error();
            }
            return StaticCode(std::make_shared<State>(path, std::move(bundle->executable),
                                                      std::move(bundle->information), verifier));
        }
        Result<CodeFile> code = CodeFile::open(readingPath);
        if (!code) {
            return code.error();
        }
        return StaticCode(std::make_shared<State>(path, std::move(*code), std::nullopt, verifier));
    });
}

Result<std::shared_ptr<const CodeFacts>> StaticCode::facts() const {
    return orNoMemory([this] {
        return state_->judgement.get([this] {
            return state_->verifier.judge(state_->code, state_->information ? &*state_->information : nullptr);
        });
    });
}

Result<CodeFacts> StaticCode::claims() const {
    return claimsOf(state_->code);
}

Status StaticCode::checkValidity(Checks, const Requirement* requirement) const {
    return orNoMemory([&] { return meets(facts(), requirement); });
}

const std::string& StaticCode::path() const {
    return state_->path;
}

}  // namespace ksw::facts
