// item_from_configuration.cpp: what a job's launch configuration says of its item.

#include <utility>

#include <kestrelwood/KSWCodeSignInfo.h>
#include <kestrelwood/KSWItem.h>

#include "model/config/attribution.h"
#include "model/config/configuration.h"
#include "platform/facts/file_inside.h"
#include "platform/host/log.h"

using ksw::URL;
using ksw::config::Configuration;
using OptionalString = KSWItem::OptionalString;
using OptionalURL = std::optional<URL>;
using SignInfo = std::shared_ptr<KSWCodeSignInfo>;

namespace {

constexpr ksw::Literal kFunction{"-[KSWItem setPropertiesWithKSWConfig:]"};

/// The program that a configuration names.
struct Program {
    OptionalString path;  ///< As named.
    OptionalURL url;      ///< Where that is; absent when it cannot be told.
};

/// Of an item that lives in its application, a relative path is one below that. One that leads out of it names no
/// program: whoever trusts the application has not seen what lies elsewhere.
Program programOf(const KSWItem& item, OptionalString path) {
    if (!path) {
        return {};
    }
    if (item.isLegacy() || path->starts_with('/')) {
        return {path, URL::fileURL(*path)};
    }
    const KSWItem::Pointer parent = item.container();
    if (parent == nullptr || !parent->url()) {
        return {std::move(path), std::nullopt};
    }
    OptionalURL url = ksw::facts::fileInside(*parent->url(), *path);
    if (!url) {
        ksw::host::mainLog.error("%s: the program lies outside of its application: path=%@, item=%{public}@",
                                 kFunction, path, item);
        return {};
    }
    return {std::move(path), std::move(url)};
}

/// What the signatures say: that of `judged` who has made the item, that of `started` under which conditions it
/// runs.
void readSignatures(KSWItem& item, const OptionalURL& judged, const OptionalURL& started) {
    const SignInfo maker = judged ? KSWCodeSignInfo::codeSignInfoForURL(judged) : nullptr;
    const SignInfo program = started == judged ? maker
                             : started         ? KSWCodeSignInfo::codeSignInfoForURL(started)
                                               : nullptr;
    item.setTeamIdentifier(maker ? maker->teamIdentifier() : std::nullopt);
    item.setDesignatedRequirement(maker ? maker->designatedRequirement() : std::nullopt);
    item.setLightweightRequirement(program ? program->lightweightCodeRequirement() : std::nullopt);
    if (program != nullptr && program->isSandboxed()) {
        item.setSandboxed(true);
    }
}

}  // namespace

OptionalURL KSWItem::setPropertiesWithKSWConfig(const std::optional<ksw::Dictionary>& config) {
    const Configuration configuration(config);
    setSha256(configuration.data(KSWConfigSHA256Checksum));
    setProgramArguments(configuration.texts(KSWConfigArguments));
    Program program = programOf(*this, configuration.text(KSWConfigExecutablePath));
    OptionalURL judged = program.url;
    if (setExecutablePathFromLauncherTargetWithConfig(config)) {
        judged = URL::fileURL(*executablePath());
    } else {
        setExecutablePath(std::move(program.path));
        if (program.url) {
            _setExecutableModificationDateFromURL(*program.url);
        }
    }
    readSignatures(*this, judged, program.url);
    return ksw::config::attribute(*this, configuration, judged ? OptionalString(judged->path()) : std::nullopt);
}
