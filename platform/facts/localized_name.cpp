#include "platform/facts/localized_name.h"

#include <array>
#include <iterator>
#include <optional>
#include <string_view>

#include "platform/base/limits.h"
#include "platform/base/paths.h"
#include "platform/base/utf8.h"
#include "platform/facts/resources.h"
#include "platform/host/bundles.h"
#include "platform/host/languages.h"

namespace ksw::facts {

namespace {

constexpr std::string_view kNameKeys[] = {"QCBundleDisplayName", "QCBundleName"};
/// Largest list of an application's names in one language, in bytes: with all of a user's languages no more is read
/// than of an information property list.
constexpr std::size_t kNamesFileMax = limits::kPropertyListFileMax / host::kLanguagesMax;
constexpr char32_t kReplacement = 0xFFFD;

/// The names that an application has, by its lists in the order of preference.
class Names {
public:
    /// Takes from a list what no list before it has, and lets go of the rest: there may be many lists.
    void add(const std::string& folder, std::string_view file, std::size_t sizeMax) {
        const Result<Dictionary> list = readResource(folder, file, sizeMax);
        for (std::size_t key = 0; list && key < names_.size(); ++key) {
            const auto* name = find<std::string>(*list, kNameKeys[key]);
            if (names_[key].empty() && name != nullptr && name->size() <= limits::kDisplayNameMax) {
                names_[key] = *name;
            }
        }
    }
    /// No further list can change what is preferred.
    bool isDecided() const { return !names_.front().empty(); }
    const std::string& preferred() const { return isDecided() ? names_.front() : names_.back(); }

private:
    std::array<std::string, std::size(kNameKeys)> names_;
};

/// Empty when it has none.
std::string applicationName(const std::string& path) {
    const std::string contents = path + "/Contents";
    Names names;
    for (const std::string& language : host::userLanguages()) {
        if (!names.isDecided()) {
            names.add(contents + "/Resources/" + language, "InfoPlist", kNamesFileMax);
        }
    }
    if (!names.isDecided()) {
        names.add(contents, "Info", limits::kPropertyListFileMax);
    }
    return names.preferred();
}

}  // namespace

std::string localizedName(const std::string& path, const host::FileFacts& facts) {
    std::string_view name = lastComponent(path);
    if (facts.isApplication) {
        if (std::string given = applicationName(path); !given.empty()) {
            return given;
        }
        name.remove_suffix(host::kApplicationExtension.size());
    }
    return readableText(name);
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
