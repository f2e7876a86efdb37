// code_questions.h: single questions about code, each answered by one rule.
#pragma once

#include <optional>
#include <string>

#include "platform/facts/code.h"

namespace ksw::facts {

/// The designated requirement in its normal spelling; absent when there is none, or none that can be read: a signer
/// with other tools may have written anything there.
std::optional<std::string> requirementText(const CodeFacts& facts);

}  // namespace ksw::facts
