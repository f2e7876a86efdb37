// The system's own value types, as a reader finds them: identifiers, URLs, dates, errors, property-list values.
#include <algorithm>

#include "platform/archive/cbor_reader.h"
#include "platform/archive/value_reader.h"

namespace ksw::archive {

namespace {

constexpr const char* kUrlExpected = "URL expected";

}  // namespace

bool Reader::uuid(UUID& uuid) {
    Bytes bytes;
    if (!tag(kUuidTag, "UUID expected") || !this->bytes(bytes)) {
        return false;
    }
    if (bytes.size() != uuid.bytes.size()) {
        return fail(FormatError::WrongType, "UUID of 16 bytes expected");
    }
    std::copy(bytes.begin(), bytes.end(), uuid.bytes.begin());
    return true;
}

bool Reader::url(std::optional<URL>& url, std::size_t sizeMax) {
    std::uint64_t found = 0;
    if (!head(Major::Tag, found, kUrlExpected)) {
        return false;
    }
    if (found == kUrlTag) {
        return plainUrl(url, nullptr, sizeMax);
    }
    return found == kObjectTag ? relativeUrl(url, sizeMax) : fail(FormatError::WrongType, kUrlExpected);
}

/// The text of a URL, relative to `base` unless that is null.
bool Reader::plainUrl(std::optional<URL>& url, const URL* base, std::size_t sizeMax) {
    std::string_view text;
    if (!this->text(text, sizeMax) || !chargeHeap(text.size() + 1)) {
        return false;
    }
    url = base == nullptr ? URL::fromString(text) : URL::fromString(text, *base);
    return url.has_value() || fail(FormatError::Malformed, "not a URL");
}

bool Reader::relativeUrl(std::optional<URL>& url, std::size_t sizeMax) {
    std::string_view name;
    std::size_t keys = 0;
    if (!enterObject(name, keys)) {
        return false;
    }
    if (name != "URL") {
        return fail(FormatError::WrongClass, kUrlExpected);
    }
    UnknownKeys unknown;
    std::optional<URL> relative;
    std::optional<URL> base;
    for (; keys > 0; --keys) {
        std::string_view key;
        if (!text(key)) {
            return false;
        }
        if ((key == "relative" && relative) || (key == "base" && base)) {
            return fail(FormatError::Malformed, "key occurs twice");
        }
        const bool taken = key == "relative" ? plainUrl(relative, nullptr, sizeMax)
                           : key == "base"   ? tag(kUrlTag, kUrlExpected) && plainUrl(base, nullptr, sizeMax)
                                             : unknown.passOver(*this, 0, key);
        if (!taken) {
            return false;
        }
    }
    leave();
    leave();
    if (!relative || !base) {
        return fail(FormatError::Malformed, "URL without its text or base");
    }
    constexpr std::size_t kSharedBase = sizeof(URL) + 4 * sizeof(void*);
    if (!chargeHeap(kSharedBase + relative->relativeString().size() + base->relativeString().size() + 2)) {
        return false;
    }
    url = URL::fromString(relative->relativeString(), *base);
    return url.has_value() || fail(FormatError::Malformed, "not a URL");
}

bool Reader::date(Date& date) {
    constexpr const char* kExpected = "date expected";
    std::string_view name;
    std::size_t keys = 0;
    if (!tag(kObjectTag, kExpected) || !enterObject(name, keys)) {
        return false;
    }
    return name == "Date" ? dateKeys(date, keys) : fail(FormatError::WrongClass, kExpected);
}

bool Reader::dateKeys(Date& date, std::size_t keys) {
    UnknownKeys unknown;
    bool hasSeconds = false;
    for (; keys > 0; --keys) {
        std::string_view key;
        if (!text(key)) {
            return false;
        }
        if (key != "seconds") {
            if (!unknown.passOver(*this, 0, key)) {
                return false;
            }
            continue;
        }
        if (hasSeconds) {
            return fail(FormatError::Malformed, "key occurs twice");
        }
        hasSeconds = true;
        if (!real(date.secondsSinceReference)) {
            return false;
        }
    }
    leave();
    leave();
    return hasSeconds || fail(FormatError::Malformed, "date without seconds");
}

bool Reader::error(std::optional<Error>& error, ValueKinds userInfo) {
    Value value;
    if (!ValueReader(*this, userInfo).error(value)) {
        return false;
    }
    error = *value.as<Error>();
    return true;
}

bool Reader::dictionary(Dictionary& dictionary, ValueKinds kinds) {
    return ValueReader(*this, kinds).dictionary(dictionary);
}

bool Reader::array(Array& array, ValueKinds kinds) {
    return ValueReader(*this, kinds).array(array);
}

bool Reader::value(Value& value, ValueKinds kinds) {
    return ValueReader(*this, kinds).value(value);
}

}  // namespace ksw::archive
