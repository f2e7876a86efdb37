#include "platform/facts/requirement_scanner.h"

#include <algorithm>

#include "platform/base/utf8.h"

namespace ksw::facts {

namespace {

using Kind = RequirementToken::Kind;

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kSigns = "()[]=!";

bool isWordCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-';
}

}  // namespace

Error RequirementScanner::error(FormatError code, std::size_t offset, std::string_view what) const {
    std::size_t column = 1;
    std::size_t position = 0;
    // Bytes that are no character are refused where they stand, so up to there all are.
    while (position < offset && decodeUtf8(text_, position)) {
        ++column;
    }
    return {code, "requirement, column " + std::to_string(column) + ": " + std::string(what)};
}

Result<RequirementToken> RequirementScanner::next() {
    position_ = std::min(text_.find_first_not_of(kBlanks, position_), text_.size());
    if (position_ == text_.size()) {
        return RequirementToken{Kind::End, {}, position_};
    }
    const std::size_t begin = position_;
    if (text_[begin] == '"') {
        return quoted();
    }
    if (kSigns.find(text_[begin]) != std::string_view::npos) {
        ++position_;
        return RequirementToken{Kind::Sign, std::string(1, text_[begin]), begin};
    }
    while (position_ < text_.size() && isWordCharacter(text_[position_])) {
        ++position_;
    }
    if (position_ == begin) {
        return error(FormatError::Malformed, begin, "this needs quotes");
    }
    return RequirementToken{Kind::Word, std::string(text_.substr(begin, position_ - begin)), begin};
}

Result<RequirementToken> RequirementScanner::quoted() {
    RequirementToken token{Kind::Quoted, {}, position_++};
    while (position_ < text_.size()) {
        const std::size_t begin = position_;
        const char first = text_[begin];
        if (first == '"') {
            ++position_;
            return token;
        }
        if (first == '\\') {
            ++position_;
            if (position_ == text_.size() || (text_[position_] != '"' && text_[position_] != '\\')) {
                return error(FormatError::Malformed, begin, "only \\\" and \\\\ are escapes");
            }
            token.text += text_[position_++];
            continue;
        }
        if (!decodeUtf8(text_, position_)) {
            return error(FormatError::Malformed, begin, "not UTF-8");
        }
        token.text += text_.substr(begin, position_ - begin);
    }
    return error(FormatError::Malformed, token.offset, "the closing quote is missing");
}

}  // namespace ksw::facts
