// launcher_target.cpp: jobs that only ask for an application to be opened. What they start is the application.

#include <utility>

#include <kestrelwood/KSWAdditions.h>
#include <kestrelwood/KSWItem.h>

#include "model/config/application_access.h"
#include "model/config/configuration.h"
#include "platform/facts/file_inside.h"

using ksw::URL;
using ksw::config::ApplicationAccess;
using ksw::config::Configuration;
using ksw::config::Strings;
using OptionalString = KSWItem::OptionalString;

namespace {

constexpr ksw::Literal kFunction{"-[KSWItem setExecutablePathFromLauncherTargetWithConfig:]"};

/// An application to be opened.
struct Target {
    OptionalString name;
    std::string path;
};

bool isLauncher(const Strings& arguments) {
    return arguments.size() >= 2 && (arguments[0] == "open" || arguments[0] == "/usr/bin/open");
}

std::optional<Target> applicationAt(const std::string& path) {
    const URL url = URL::fileURL(path);
    return __ksw_isApplication(url) ? std::optional(Target{__ksw_localizedName(url), path}) : std::nullopt;
}

std::optional<Target> applicationNamed(const std::string& bundleIdentifier) {
    const std::optional<ApplicationAccess> applications = ApplicationAccess::asConsoleUser(kFunction);
    const std::optional<ksw::Application> found =
        applications ? applications->find(bundleIdentifier) : std::nullopt;
    return found ? std::optional(Target{found->localizedName(), found->url().path()}) : std::nullopt;
}

std::optional<Target> applicationOnPath(const std::string& path) {
    const std::optional<URL> application = ksw::facts::applicationAround(path);
    return application ? std::optional(Target{__ksw_localizedName(*application), application->path()})
                       : std::nullopt;
}

std::optional<Target> targetOf(const Strings& arguments) {
    const std::string& option = arguments[1];
    std::optional<Target> target;
    if (arguments.size() >= 3 && (option == "-a" || option == "-W" || option == "--wait-apps")) {
        target = applicationAt(arguments[2]);
    } else if (arguments.size() >= 3 && option == "-b") {
        target = applicationNamed(arguments[2]);
    }
    return target ? target : applicationOnPath(option);
}

}  // namespace

bool KSWItem::setExecutablePathFromLauncherTargetWithConfig(const std::optional<ksw::Dictionary>& config) {
    if (!intersectsType(KSWItemTypeAgent | KSWItemTypeDaemon)) {
        return false;
    }
    const std::optional<Strings> arguments = Configuration(config).texts(KSWConfigArguments);
    std::optional<Target> target = arguments && isLauncher(*arguments) ? targetOf(*arguments) : std::nullopt;
    if (!target) {
        return false;
    }
    _setExecutableModificationDateFromURL(URL::fileURL(target->path));
    setName(std::move(target->name));
    setExecutablePath(std::move(target->path));
    return true;
}
