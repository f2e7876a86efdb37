// requirement_scanner.h: a requirement's text as words, values in quotes and signs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/base/result.h"

namespace ksw::facts {

struct RequirementToken {
    enum class Kind : std::uint8_t { End, Word, Quoted, Sign };

    Kind kind = Kind::End;
    std::string text;        ///< Of a quoted value without quotes and escapes; of a sign its one character.
    std::size_t offset = 0;  ///< In bytes.
};

/// Takes a text apart that is borrowed for its life. Lets `std::bad_alloc` through. One thread.
class RequirementScanner {
public:
    explicit RequirementScanner(std::string_view text) : text_(text) {}

    /// The next token; `End` at the end, as often as asked. Error: FormatError with the column.
    Result<RequirementToken> next();

    /// "requirement, column N: WHAT"; N counts characters from 1.
    Error error(FormatError code, std::size_t offset, std::string_view what) const;

private:
    Result<RequirementToken> quoted();

    std::string_view text_;
    std::size_t position_ = 0;
};

}  // namespace ksw::facts
