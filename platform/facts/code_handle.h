// code_handle.h: what the exported handle of code stands for, and where code at a URL comes from.
#pragma once

#include <memory>
#include <optional>
#include <utility>
#include <variant>

#include <kestrelwood/code.h>

#include "platform/base/result.h"
#include "platform/facts/code.h"

namespace ksw {

struct Code::State {
    std::variant<facts::StaticCode, facts::RunningCode> code;
};

struct CodeAccess {
    template <class SomeCode>
    static Code make(SomeCode code) {
        return Code(std::make_shared<const Code::State>(Code::State{std::move(code)}));
    }
    static const Code::State& state(const Code& code) { return *code.state_; }
};

namespace facts {

/// Any thread; errors as for `StaticCode` and `RunningCode`.
Result<std::shared_ptr<const CodeFacts>> factsOf(const Code& code);

/// The code at a file URL, or at a URL that is a path alone. Error: `Parameter` for none and for any other, else as
/// for `StaticCode::open`.
Result<StaticCode> codeAtURL(const std::optional<URL>& url);

/// Throws `std::invalid_argument` for a null token: there is no process that it could mean.
Result<RunningCode> codeOfProcess(const AuditToken* token);

}  // namespace facts
}  // namespace ksw
