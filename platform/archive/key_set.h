// key_set.h: the keys of an open map that its reader does not know, so that none occurs twice.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <vector>

#include "platform/archive/cbor_reader.h"

namespace ksw::archive {

/// The unknown keys of all open maps, innermost last. Keys view the input.
class UnknownKeys {
public:
    /// Where the keys of a map that is opened now begin.
    std::size_t begin() const { return keys_.size(); }
    /// Forgets the keys of a map that has been read.
    void close(std::size_t begin) { keys_.resize(begin); }

    /// Notes a key of the innermost map and passes over its value. Fails for a second key of the same name and for
    /// more than limits::kUnknownKeysMax.
    bool passOver(Reader& reader, std::size_t begin, std::string_view key) {
        const auto first = keys_.begin() + static_cast<std::ptrdiff_t>(begin);
        if (std::find(first, keys_.end(), key) != keys_.end()) {
            return reader.fail(FormatError::Malformed, "key occurs twice");
        }
        if (keys_.size() - begin == limits::kUnknownKeysMax) {
            return reader.fail(FormatError::LimitPassed, "too many unknown keys");
        }
        keys_.push_back(key);
        return reader.skip();
    }

private:
    std::vector<std::string_view> keys_;
};

}  // namespace ksw::archive
