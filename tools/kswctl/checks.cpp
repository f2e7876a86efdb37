// What is installed, and can be read.
#include "tools/kswctl/checks.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/ksw_version.h>

#include "tools/kswctl/host.h"

namespace tools::kswctl {
namespace {

bool isTooLong(const std::optional<ksw::Error>& error) {
    return error && error->domain() == ksw::kPosixErrorDomain && error->code() == EFBIG;
}

/// A property list below `base` that has to be there, or to be as it should when it is.
Check checkList(std::string about, const std::string& base, const std::string& file, const std::string& mend) {
    const std::string path = base + file;
    if (access(path.c_str(), R_OK) != 0) {
        const int error = errno;
        return {std::move(about), Finding::Wrong, path + ": " + std::strerror(error),
                error == EACCES ? "chmod -R a+rX " + shellWord(base) : mend};
    }
    std::optional<ksw::Error> error;
    // A table may be longer than what is read here.
    if (!ksw::readPropertyListFile(ksw::URL::fileURL(path), &error) && !isTooLong(error)) {
        return {std::move(about), Finding::Wrong,
                path + ": " + (error ? std::string(error->localizedDescription()) : "no property list"), mend};
    }
    return {std::move(about), Finding::Well, path, {}};
}

Check checkDaemonProgram() {
    for (const char* folder : {"/usr/sbin/", "/usr/local/sbin/"}) {
        const std::string path = hostPlace(std::string(folder) + "kestrelwoodd");
        if (access(path.c_str(), X_OK) == 0) {
            return {"kestrelwoodd", Finding::Well, path, {}};
        }
    }
    return {"kestrelwoodd", Finding::Missing, "not in /usr/sbin", kReinstallCommand};
}

/// The tool and the library come from the same sources, and are installed together.
Check checkLibrary() {
    const std::string version = ksw_version();
    if (version == KSW_VERSION) {
        return {"library", Finding::Well, version, {}};
    }
    return {"library", Finding::Wrong, "is " + version + ", and this tool of " KSW_VERSION,
            "apt-get install --reinstall kestrelwood libkestrelwood1"};
}

Check checkCrypto() {
    // The library looks for no other.
    constexpr const char* kName = "libcrypto.so.3";
    if (void* library = dlopen(kName, RTLD_LAZY | RTLD_LOCAL)) {
        dlclose(library);
        return {"signatures", Finding::Well, std::string(kName) + " is there", {}};
    }
    return {"signatures", Finding::Wrong, std::string("no ") + kName + ": no signature can be read",
            "apt-get install libssl3"};
}

}  // namespace

std::vector<Check> checkInstallation() {
    const std::string share = hostPlace("/usr/share/kestrelwood");
    std::vector<Check> checks{checkLibrary(), checkDaemonProgram(),
                              checkList("features", share, "/features/Kestrelwood.plist", kReinstallCommand),
                              checkList("texts", share, "/Resources/en/Localizable.plist", kReinstallCommand),
                              checkList("attributions", share, "/Resources/attributions.plist", kReinstallCommand)};
    const std::string etc = hostPlace("/etc/kestrelwood");
    const std::string own = "/features/Kestrelwood.plist";
    if (isThere(etc + own)) {
        checks.push_back(checkList("features of this host", etc, own, "rm " + shellWord(etc + own)));
    }
    checks.push_back(checkCrypto());
    return checks;
}

}  // namespace tools::kswctl
