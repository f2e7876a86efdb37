#include "platform/host/languages.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "platform/host/environment.h"

namespace ksw::host {

namespace {

constexpr std::size_t kNameMax = 32;  // "ca_ES", "zh_Hant_TW"

/// Letters, digits and "_" with a letter in front, so that it is one name of a folder.
bool isLanguage(std::string_view name) {
    const auto isLetter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    return name.size() >= 2 && name.size() <= kNameMax && isLetter(name.front()) && name != "POSIX" &&
           std::all_of(name.begin(), name.end(),
                       [&](char c) { return isLetter(c) || (c >= '0' && c <= '9') || c == '_'; });
}

void add(std::vector<std::string>& languages, std::string_view name) {
    if (isLanguage(name) && languages.size() < kLanguagesMax &&
        std::find(languages.begin(), languages.end(), name) == languages.end()) {
        languages.emplace_back(name);
    }
}

std::string givenLanguages() {
    for (const char* variable : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
        if (std::optional<std::string> given = environmentVariable(variable); given && !given->empty()) {
            return std::move(*given);
        }
    }
    return {};
}

}  // namespace

std::vector<std::string> userLanguages() {
    std::vector<std::string> languages;
    const std::string given = givenLanguages();
    std::string_view rest = given;
    while (!rest.empty()) {
        const std::string_view entry = rest.substr(0, rest.find(':'));
        rest.remove_prefix(std::min(entry.size() + 1, rest.size()));
        // "de_AT.UTF-8@euro"
        const std::string_view name = entry.substr(0, entry.find_first_of(".@"));
        add(languages, name);
        add(languages, name.substr(0, name.find('_')));
    }
    return languages;
}

}  // namespace ksw::host
