// item_from_configuration.cpp: what a job's launch configuration says of its item.

#include <utility>

#include <kestrelwood/KSWCodeSignInfo.h>
#include <kestrelwood/KSWItem.h>

#include "model/config/attribution.h"
#include "model/config/configuration.h"
#include "platform/facts/code_sign_info.h"
#include "platform/facts/file_inside.h"
#include "platform/host/log.h"

using ksw::URL;
using ksw::config::Configuration;
using OptionalString = KSWItem::OptionalString;
using OptionalURL = std::optional<URL>;
using ksw::facts::FoundFile;
using SignInfo = std::shared_ptr<KSWCodeSignInfo>;

namespace {

constexpr ksw::Literal kFunction{"-[KSWItem setPropertiesWithKSWConfig:]"};

/// The program that a configuration names.
struct Program {
    OptionalString path;            ///< As named.
    std::optional<FoundFile> file;  ///< Absent when it cannot be told where that is.
};

FoundFile fileAt(const std::string& path) {
    const URL url = URL::fileURL(path);
    return {url, url, ksw::UniqueFd()};
}

/// Of an item that lives in its application, a relative path is one below that. One that leads out of it names no
/// program: whoever trusts the application has not seen what lies elsewhere.
Program programOf(const KSWItem& item, OptionalString path) {
    if (!path) {
        return {};
    }
    if (item.isLegacy() || path->starts_with('/')) {
        return {path, fileAt(*path)};
    }
    const KSWItem::Pointer parent = item.container();
    if (parent == nullptr || !parent->url()) {
        return {std::move(path), std::nullopt};
    }
    std::optional<FoundFile> file = ksw::facts::findInside(*parent->url(), *path);
    if (!file) {
        ksw::host::mainLog.error("%s: the program lies outside of its application: path=%@, item=%{public}@",
                                 kFunction, path, item);
        return {};
    }
    return {std::move(path), std::move(file)};
}

SignInfo signInfoOf(const std::optional<FoundFile>& file) {
    return file ? ksw::CodeSignInfoAccess::ofFound(*file) : nullptr;
}

/// Stores what the signatures say: that of the maker's code who has made the item, that of the program under which
/// conditions it runs.
void storeSignatures(KSWItem& item, const SignInfo& maker, const SignInfo& program) {
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
    const bool isLauncher = setExecutablePathFromLauncherTargetWithConfig(config);
    const SignInfo ofProgram = signInfoOf(program.file);
    const SignInfo maker = isLauncher ? signInfoOf(fileAt(*executablePath())) : ofProgram;
    if (!isLauncher) {
        setExecutablePath(std::move(program.path));
        if (program.file) {
            _setExecutableModificationDateFromURL(program.file->readingURL);
        }
    }
    storeSignatures(*this, maker, ofProgram);
    return ksw::config::attribute(*this, configuration, maker ? maker->developerName() : std::nullopt);
}
