// attributions.h: the attribution tables of this host: which developer and which applications stand behind a job.
#pragma once

#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kestrelwood/values/value.h>

#include "platform/facts/attributions_lookup.h"

namespace ksw::facts {

/// The tables, each read on first use and kept: later changes of the files are not seen. A table that cannot be
/// read is empty; unless there is just no file, that is logged as an error. What is handed out lives as long as
/// this. Any thread; whoever comes first blocks for the reading, and so do those who come meanwhile.
///
/// `function` is the operation that a person called, for the log. Absent labels and teams match nothing.
class AttributionTables {
public:
    using Text = std::optional<std::string>;
    using Texts = std::optional<std::vector<std::string>>;

    AttributionTables() = default;
    AttributionTables(const AttributionTables&) = delete;
    AttributionTables& operator=(const AttributionTables&) = delete;

    /// The public table, with the internal one in it on a host with internal content.
    const Dictionary& merged();
    /// The internal table; null without internal content, which is asked for on each call.
    const Dictionary* internal();

    /// The entry of the merged table, when the team is the one that it asks for.
    const Dictionary* entry(const Text& label, const Text& team);

    Text developerName(std::string_view function, const Text& label, const Text& team);
    Text internalName(std::string_view function, const Text& label);
    Texts associatedBundleIdentifiers(std::string_view function, const Text& label, const Text& team);
    Texts internalAssociatedBundleIdentifiers(std::string_view function, const Text& label);

    /// Whether the text is a label or an attribution of the merged table.
    bool containsLabelOrName(const Text& text);

private:
    const Dictionary* internalEntry(const std::string& label);

    std::once_flag mergedOnce_;
    Dictionary merged_;
    std::once_flag internalOnce_;
    Dictionary internal_;
    std::once_flag namesOnce_;
    std::optional<AttributionNames> names_;
};

}  // namespace ksw::facts
