// Whatever can be read can be written and read again, in either form, and is the same value.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "platform/plist/property_list.h"

namespace {

using ksw::Array;
using ksw::Date;
using ksw::Dictionary;
using ksw::FormatError;
using ksw::Result;
using ksw::Value;

bool hasCode(const ksw::Error& error, FormatError code) {
    return error.code() == static_cast<std::int64_t>(code);
}

/// Equal, but any two NaNs are, and dates of the same second. Recursive: a value's depth is bounded.
bool isSame(const Value& left, const Value& right) {
    if (const Array* array = left.as<Array>()) {
        const Array* other = right.as<Array>();
        return other != nullptr && std::equal(array->begin(), array->end(), other->begin(), other->end(), isSame);
    }
    if (const Dictionary* dictionary = left.as<Dictionary>()) {
        const Dictionary* other = right.as<Dictionary>();
        return other != nullptr && std::equal(dictionary->begin(), dictionary->end(), other->begin(), other->end(),
                                              [](const auto& one, const auto& two) {
                                                  return one.first == two.first && isSame(one.second, two.second);
                                              });
    }
    if (const double* number = left.as<double>()) {
        const double* other = right.as<double>();
        return other != nullptr && (*number == *other || (std::isnan(*number) && std::isnan(*other)));
    }
    if (const Date* date = left.as<Date>()) {
        const Date* other = right.as<Date>();
        return other != nullptr &&
               std::floor(date->secondsSinceReference) == std::floor(other->secondsSinceReference);
    }
    return left == right;
}

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

/// A written form may be smaller than what was read, and so may the heap that reading it is granted.
void requireSame(const Value& value, const Result<Value>& again) {
    require(again ? isSame(value, *again) : hasCode(again.error(), FormatError::LimitPassed));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto value = ksw::plist::read({data, size});
    if (!value) {
        return 0;
    }
    const auto binary = ksw::plist::writeBinary(*value);
    require(binary.ok());
    const auto again = ksw::plist::readBinary(*binary);
    requireSame(*value, again);
    if (again) {
        require(*ksw::plist::writeBinary(*again) == *binary);
    }
    const auto xml = ksw::plist::writeXml(*value);
    if (!xml) {
        // The binary form holds characters and dates that XML does not.
        require(hasCode(xml.error(), FormatError::Unsupported));
        return 0;
    }
    requireSame(*value, ksw::plist::readXml(*xml));
    return 0;
}
