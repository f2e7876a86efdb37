#include <kestrelwood/values/error.h>

#include <kestrelwood/values/value.h>

namespace ksw {

struct Error::Content {
    std::string domain;
    std::int64_t code;
    Dictionary userInfo;
};

Error::Error(std::string_view domain, std::int64_t code) : Error(domain, code, Dictionary{}) {}

Error::Error(std::string_view domain, std::int64_t code, std::string_view text)
    : Error(domain, code, Dictionary{{std::string(kLocalizedDescriptionKey), Value(text)}}) {}

Error::Error(std::string_view domain, std::int64_t code, Dictionary userInfo)
    : content_(std::make_shared<const Content>(Content{std::string(domain), code, std::move(userInfo)})) {}

const std::string& Error::domain() const {
    return content_->domain;
}

std::int64_t Error::code() const {
    return content_->code;
}

const Dictionary& Error::userInfo() const {
    return content_->userInfo;
}

std::string_view Error::localizedDescription() const {
    const auto* text = find<std::string>(content_->userInfo, kLocalizedDescriptionKey);
    return text == nullptr ? std::string_view() : std::string_view(*text);
}

std::string Error::description() const {
    std::string text = "Error Domain=" + content_->domain + " Code=" + std::to_string(content_->code);
    if (const std::string_view quoted = localizedDescription(); !quoted.empty()) {
        text += " \"";
        text += quoted;
        text += '"';
    }
    return text;
}

bool operator==(const Error& left, const Error& right) {
    return left.content_ == right.content_ ||
           (left.content_->code == right.content_->code && left.content_->domain == right.content_->domain &&
            left.content_->userInfo == right.content_->userInfo);
}

}  // namespace ksw
