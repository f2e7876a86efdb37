#include "model/config/configuration.h"

#include <algorithm>

#include "platform/base/limits.h"

namespace ksw::config {

namespace {

const std::string* fieldText(const Value& value) {
    const auto* text = value.as<std::string>();
    return text != nullptr && text->size() <= limits::kFieldMax ? text : nullptr;
}

}  // namespace

template <class T>
const T* Configuration::fact(std::string_view key) const {
    return dictionary_ == nullptr ? nullptr : find<T>(*dictionary_, key);
}

OptionalString Configuration::text(std::string_view key) const {
    const auto* text = fact<std::string>(key);
    return text != nullptr && text->size() <= limits::kFieldMax ? OptionalString(*text) : std::nullopt;
}

std::optional<Strings> Configuration::texts(std::string_view key) const {
    const auto* array = fact<Array>(key);
    if (array == nullptr) {
        return std::nullopt;
    }
    Strings texts;
    texts.reserve(array->size());
    for (const Value& value : *array) {
        const std::string* text = fieldText(value);
        if (text == nullptr) {
            return std::nullopt;
        }
        texts.push_back(*text);
    }
    return texts;
}

std::optional<Data> Configuration::data(std::string_view key) const {
    const auto* data = fact<Data>(key);
    return data != nullptr && data->size() <= limits::kFieldMax ? std::optional(*data) : std::nullopt;
}

}  // namespace ksw::config
