#include "tools/kswctl/checks.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <utility>

#include <kestrelwood/KSWManager.h>
#include <kestrelwood/KSWRegistrar.h>
#include <kestrelwood/service_connection.h>

namespace tools::kswctl {
namespace {

namespace fs = std::filesystem;

constexpr const char* kReinstall = "apt-get install --reinstall kestrelwood";

/// A place of the host, below the host root when one is set.
std::string hostPlace(const std::string& path) {
    const char* root = secure_getenv("KESTRELWOOD_ROOT");
    return (root == nullptr ? std::string() : std::string(root)) + path;
}

std::string variable(const char* name) {
    const char* value = secure_getenv(name);
    return value == nullptr ? std::string() : std::string(value);
}

bool isThere(const std::string& path) {
    std::error_code problem;
    return fs::exists(path, problem);
}

Check checkReadable(std::string about, const std::string& path) {
    if (access(path.c_str(), R_OK) == 0) {
        return {std::move(about), Finding::Well, path, {}};
    }
    const int error = errno;
    return {std::move(about), Finding::Wrong, path + ": " + std::strerror(error),
            error == EACCES ? "chmod -R a+rX " + path : std::string(kReinstall)};
}

Check checkDaemonProgram() {
    for (const char* folder : {"/usr/sbin/", "/usr/local/sbin/"}) {
        const std::string path = hostPlace(std::string(folder) + "kestrelwoodd");
        if (access(path.c_str(), X_OK) == 0) {
            return {"kestrelwoodd", Finding::Well, path, {}};
        }
    }
    return {"kestrelwoodd", Finding::Missing, "not in /usr/sbin", kReinstall};
}

Check checkCrypto() {
    for (const char* name : {"libcrypto.so.3", "libcrypto.so.1.1", "libcrypto.so"}) {
        if (void* library = dlopen(name, RTLD_LAZY | RTLD_LOCAL)) {
            dlclose(library);
            return {"signatures", Finding::Well, std::string(name) + " is there", {}};
        }
    }
    return {"signatures", Finding::Wrong, "no libcrypto: no signature can be read", "apt-get install libssl3"};
}

std::string startCommand() {
    return isThere(hostPlace("/run/systemd/system")) ? "systemctl enable --now kestrelwoodd.service"
                                                     : "kestrelwoodd &";
}

Check checkConnection(std::string about, ksw::ServiceConnection* connection) {
    if (connection == nullptr) {
        return {std::move(about), Finding::Wrong, "the feature ControlAutomaticAppLaunch is off",
                "rm " + hostPlace("/etc/kestrelwood/features/Kestrelwood.plist")};
    }
    std::optional<ksw::Error> error;
    if (connection->serverStatus(&error)) {
        return {std::move(about), Finding::Well, connection->serviceName() + " answers", {}};
    }
    return {std::move(about), Finding::Wrong,
            connection->serviceName() + ": " +
                (error ? std::string(error->localizedDescription()) : std::string("no answer")),
            startCommand()};
}

bool accepts(const std::string& path) {
    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    if (path.size() >= sizeof place.sun_path) {
        return false;
    }
    std::memcpy(place.sun_path, path.data(), path.size());
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0) {
        return false;
    }
    const bool isAccepted =
        connect(descriptor, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0 || errno == EAGAIN;
    close(descriptor);
    return isAccepted;
}

/// One of the services in the caller's session, which not every session needs.
Check checkOfSession(std::string about, const std::string& service, const std::string& unit) {
    const std::string folder = variable("XDG_RUNTIME_DIR");
    if (folder.empty() || !isThere(hostPlace(folder))) {
        return {std::move(about), Finding::Well, "not wanted: the caller has no session", {}};
    }
    if (accepts(hostPlace(folder) + "/kestrelwood/" + service)) {
        return {std::move(about), Finding::Well, service + " listens", {}};
    }
    return {std::move(about), Finding::Missing, service + ": nobody listens",
            "systemctl --user enable --now " + unit};
}

/// A folder that everybody relies on: its owner's alone, and that is an administrator.
Check checkGuarded(std::string about, const std::string& path) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) != 0) {
        return {std::move(about), Finding::Missing, path + ": " + std::strerror(errno), "mkdir -p -m 755 " + path};
    }
    struct stat root {};
    const bool isOwn = stat(hostPlace("/").c_str(), &root) == 0 && facts.st_uid == root.st_uid;
    if (!isOwn) {
        return {std::move(about), Finding::Wrong, path + " is uid " + std::to_string(facts.st_uid) + "'s",
                "chown root: " + path};
    }
    if ((facts.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return {std::move(about), Finding::Wrong, "others may write to " + path, "chmod go-w " + path};
    }
    return {std::move(about), Finding::Well, path, {}};
}

std::size_t certificatesIn(const std::string& path) {
    std::error_code problem;
    std::size_t count = 0;
    for (auto entry = fs::directory_iterator(path, problem); !problem && entry != fs::directory_iterator();
         entry.increment(problem)) {
        count += entry->is_regular_file(problem) ? 1 : 0;
    }
    return count;
}

}  // namespace

std::vector<Check> checkInstallation() {
    const std::string share = hostPlace("/usr/share/kestrelwood");
    std::vector<Check> checks{checkDaemonProgram(),
                              checkReadable("features", share + "/features/Kestrelwood.plist"),
                              checkReadable("texts", share + "/Resources/en/Localizable.plist"),
                              checkReadable("attributions", share + "/Resources/attributions.plist")};
    const std::string own = hostPlace("/etc/kestrelwood/features/Kestrelwood.plist");
    if (isThere(own)) {
        checks.push_back(checkReadable("features of this host", own));
    }
    checks.push_back(checkCrypto());
    return checks;
}

std::vector<Check> checkServices() {
    return {checkConnection("manager", KSWManager::shared().connection()),
            checkConnection("registrar", KSWRegistrar::shared().connection()),
            checkOfSession("agent", "com.velmont.kestrelwoodagent",
                           "kestrelwoodagent.socket kestrelwoodagent-notify.socket"),
            checkOfSession("notifications", "com.velmont.kestrelwood.notifications",
                           "kestrelwoodd-notifications.socket")};
}

std::vector<Check> checkTrust() {
    std::vector<Check> checks{checkGuarded("run folder", hostPlace("/run/kestrelwood"))};
    for (const char* folder : {"/etc/kestrelwood/trust", "/usr/share/kestrelwood/trust"}) {
        Check check = checkGuarded("trust", hostPlace(folder));
        if (check.finding == Finding::Well) {
            const std::size_t count = certificatesIn(check.detail);
            check.detail += ": " + std::to_string(count) + (count == 1 ? " certificate" : " certificates");
        }
        checks.push_back(std::move(check));
    }
    return checks;
}

}  // namespace tools::kswctl
