// configuration.h: the facts in a launch configuration. It comes from a job's file, or over a connection, so any
// value may be of any kind: one that does not fit its key, or is longer than an item's field may be, is no fact.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kestrelwood/values/data.h>
#include <kestrelwood/values/value.h>

namespace ksw::config {

using OptionalString = std::optional<std::string>;
using Strings = std::vector<std::string>;

/// The facts under the keys of KSWTypes.h. The dictionary must outlive this. Any thread.
class Configuration {
public:
    explicit Configuration(const std::optional<Dictionary>& dictionary)
        : dictionary_(dictionary ? &*dictionary : nullptr) {}

    OptionalString text(std::string_view key) const;
    /// An array of nothing but texts.
    std::optional<Strings> texts(std::string_view key) const;
    std::optional<Data> data(std::string_view key) const;

private:
    template <class T>
    const T* fact(std::string_view key) const;

    const Dictionary* dictionary_;
};

}  // namespace ksw::config
