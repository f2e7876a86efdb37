// options_verbs.h: which verbs the command line has, under which words, and what its help says of them.
#pragma once

#include <span>
#include <string_view>

#include "tools/kswctl/options_raw.h"

namespace tools::kswctl {

/// One verb's place in the command line.
struct VerbRow {
    Verb verb;
    Takes takes;
    const char* name;
    const char* help;
    const char* note = "";
    const char* group = nullptr;  ///< The word in front of the verb's, that other verbs share.
    bool isDefault = false;       ///< Whether the group's word alone means this one.
};

/// A word in front of several verbs.
struct GroupRow {
    const char* name;
    const char* help;
};

/// Every verb, in the order of the help.
std::span<const VerbRow> verbRows();

/// The word that stands in a verb's row.
const GroupRow& groupNamed(std::string_view name);

}  // namespace tools::kswctl
