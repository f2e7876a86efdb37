#include <kestrelwood/KSWAdditions.h>
#include <kestrelwood/KSWFunctions.h>

#include "platform/facts/localized_name.h"

using ksw::URL;

namespace {

/// What helpers inside an application are named after: the outermost one that the path leads into.
std::optional<std::string> nameOfOuterApplication(const std::string& path) {
    const std::optional<URL> application = __ksw_outerAppURL(URL::fileURL(path));
    return application ? __ksw_localizedName(*application) : std::nullopt;
}

}  // namespace

std::string ItemNameForURL(const URL& url) {
    if (!url.isFileURL()) {
        return url.absoluteString();
    }
    std::optional<std::string> name = __ksw_localizedName(url);
    return name ? std::move(*name) : ksw::facts::readableText(url.lastPathComponent());
}

std::optional<std::string> ItemNameForStewardPlist(const std::optional<ksw::Dictionary>& config) {
    if (!config) {
        return std::nullopt;
    }
    const std::string* path = ksw::find<std::string>(*config, KSWConfigExecutablePath);
    const std::vector<std::string> components =
        path == nullptr ? std::vector<std::string>() : ksw::pathComponents(*path);
    if (components.empty()) {
        const std::string* label = ksw::find<std::string>(*config, KSWConfigLabel);
        return label == nullptr ? std::nullopt : std::optional(*label);
    }
    std::optional<std::string> name = nameOfOuterApplication(*path);
    return name ? std::move(name) : std::optional(ksw::facts::readableText(components.back()));
}
