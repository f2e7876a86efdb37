#include "platform/facts/localized_name.h"

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/base/limits.h"
#include "platform/base/utf8.h"
#include "platform/facts/resources.h"
#include "platform/host/bundles.h"
#include "platform/host/languages.h"

namespace ksw::facts {

namespace {

constexpr std::string_view kNameKeys[] = {"QCBundleDisplayName", "QCBundleName"};
constexpr char32_t kReplacement = 0xFFFD;

void addList(std::vector<Dictionary>& lists, const std::string& folder, std::string_view name) {
    if (Result<Dictionary> list = readResource(folder, name, limits::kPropertyListFileMax)) {
        lists.push_back(std::move(*list));
    }
}

std::optional<std::string> applicationName(const std::string& path) {
    const std::string contents = path + "/Contents";
    std::vector<Dictionary> lists;
    for (const std::string& language : host::userLanguages()) {
        addList(lists, contents + "/Resources/" + language, "InfoPlist");
    }
    addList(lists, contents, "Info");
    for (std::string_view key : kNameKeys) {
        for (const Dictionary& list : lists) {
            const auto* name = find<std::string>(list, key);
            if (name != nullptr && !name->empty() && name->size() <= limits::kDisplayNameMax) {
                return *name;
            }
        }
    }
    return std::nullopt;
}

}  // namespace

std::string localizedName(const std::string& path, const host::FileFacts& facts) {
    std::string_view name = lastComponent(path);
    if (facts.isApplication) {
        if (std::optional<std::string> given = applicationName(path)) {
            return std::move(*given);
        }
        name.remove_suffix(host::kApplicationExtension.size());
    }
    return readableText(name);
}

std::string_view lastComponent(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) {
        path.remove_suffix(1);
    }
    return path == "/" ? path : path.substr(path.rfind('/') + 1);
}

std::string readableText(std::string_view text) {
    if (isUtf8(text)) {
        return std::string(text);
    }
    std::string readable;
    for (std::size_t position = 0; position < text.size();) {
        const std::optional<char32_t> character = decodeUtf8(text, position);
        position += character ? 0 : 1;
        appendUtf8(readable, character.value_or(kReplacement));
    }
    return readable;
}

}  // namespace ksw::facts
