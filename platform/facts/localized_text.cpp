#include "platform/facts/localized_text.h"

#include <vector>

#include "platform/base/limits.h"
#include "platform/facts/resources.h"
#include "platform/host/languages.h"

namespace ksw::facts {

std::string localizedText(std::string_view key, std::string_view table) {
    std::vector<std::string> languages = host::userLanguages();
    languages.emplace_back("en");
    const std::string folder = resourceFolder(kFrameworkBundle).value_or("");
    for (const std::string& language : languages) {
        const std::string place = folder + "/" + language;
        const Result<Dictionary> texts = readResource(place, table, limits::kPropertyListFileMax);
        const auto* text = texts ? find<std::string>(*texts, key) : nullptr;
        if (text != nullptr && !text->empty()) {
            return *text;
        }
    }
    return std::string(key);
}

}  // namespace ksw::facts
