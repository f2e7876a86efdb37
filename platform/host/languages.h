// languages.h: the languages that the user reads.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace ksw::host {

inline constexpr std::size_t kLanguagesMax = 16;

/// The user's languages as names of folders with localized resources, the preferred one first: "de_AT", "de". From
/// the environment: the list in LANGUAGE, else the first that is set of LC_ALL, LC_MESSAGES and LANG. Each is
/// followed by its plain form; what is no name of a language, "C" included, is left out. At most
/// `kLanguagesMax`. Any thread.
std::vector<std::string> userLanguages();

}  // namespace ksw::host
