// Whether the servers answer, and are who they should be.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWManager.h>
#include <kestrelwood/KSWRegistrar.h>
#include <kestrelwood/service_connection.h>

#include "tools/kswctl/checks.h"
#include "tools/kswctl/host.h"

namespace tools::kswctl {
namespace {

/// The command that turns the framework on again: the file that says it is off may be the host's own or the shipped
/// one.
std::string featureCommand() {
    const std::string own = hostPlace("/etc/kestrelwood/features/Kestrelwood.plist");
    const auto features = ksw::readPropertyListFile(ksw::URL::fileURL(own));
    return features && features->contains("ControlAutomaticAppLaunch") ? "rm " + shellWord(own)
                                                                       : std::string(kReinstallCommand);
}

/// The command that takes away what does not belong in the daemon's place, and has the daemon begin anew.
std::string replaceCommand(const std::string& socket) {
    const std::string removal = "rm -f " + shellWord(socket);
    return hasServiceManager()
               ? "systemctl stop 'kestrelwoodd*'; " + removal + "; systemctl start kestrelwoodd.service"
               : removal + "; kestrelwoodd &";
}

std::string mendOf(const ksw::Error& error, const std::string& service) {
    const std::string folder = hostPlace("/run/kestrelwood");
    const std::string socket = folder + "/" + service;
    if (isThere(folder) && access(socket.c_str(), W_OK) != 0 && errno == EACCES) {
        return "chmod 755 " + shellWord(folder) + " && chmod 666 " + shellWord(folder) + "/*";
    }
    if (error.domain() != ksw::kConnectionErrorDomain) {
        return startCommand();
    }
    switch (static_cast<ksw::ConnectionError>(error.code())) {
        case ksw::ConnectionError::Unreachable:
            return startCommand();
        case ksw::ConnectionError::WrongPeer:
            return replaceCommand(socket);
        default:
            return restartCommand();
    }
}

Check checkConnection(std::string about, ksw::ServiceConnection* connection) {
    if (connection == nullptr) {
        return {std::move(about), Finding::Wrong, "the feature ControlAutomaticAppLaunch is off", featureCommand()};
    }
    const std::string& service = connection->serviceName();
    std::optional<ksw::Error> error;
    if (connection->serverStatus(&error)) {
        return {std::move(about), Finding::Well, service + " answers", {}};
    }
    if (!error) {
        return {std::move(about), Finding::Wrong, service + ": no answer", restartCommand()};
    }
    return {std::move(about), Finding::Wrong, service + ": " + std::string(error->localizedDescription()),
            mendOf(*error, service)};
}

/// Who accepts connections there; absent when nobody does.
std::optional<uid_t> listenerAt(const std::string& path) {
    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    if (path.size() >= sizeof place.sun_path) {
        return std::nullopt;
    }
    std::memcpy(place.sun_path, path.data(), path.size());
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0) {
        return std::nullopt;
    }
    std::optional<uid_t> listener;
    if (connect(descriptor, reinterpret_cast<const sockaddr*>(&place), sizeof place) == 0) {
        ucred peer{};
        socklen_t size = sizeof peer;
        if (getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0) {
            listener = peer.uid;
        }
    } else if (errno == EAGAIN) {
        listener = geteuid();  // so many wait there that it does not say who it is
    }
    close(descriptor);
    return listener;
}

/// One of the services in the caller's session, which not every session needs.
Check checkOfSession(std::string about, const std::string& service, const std::string& units,
                     const std::string& program) {
    const std::string folder = sessionRunFolder();
    if (folder.empty()) {
        return {std::move(about), Finding::Well, "not wanted: the caller has no session", {}};
    }
    const std::string start = hasServiceManager() ? "systemctl --user enable --now " + units : program + " &";
    const std::string socket = folder + "/" + service;
    const std::optional<uid_t> listener = listenerAt(socket);
    if (!listener) {
        return {std::move(about), Finding::Missing, service + ": nobody listens", start};
    }
    if (*listener != geteuid()) {
        const std::string stop = hasServiceManager() ? "systemctl --user stop " + units + "; " : std::string();
        return {std::move(about), Finding::Wrong,
                service + ": who listens there is user " + std::to_string(*listener),
                stop + "rm -f " + shellWord(socket) + "; " + start};
    }
    return {std::move(about), Finding::Well, service + " listens", {}};
}

}  // namespace

std::vector<Check> checkServices() {
    return {checkConnection("manager", KSWManager::shared().connection()),
            checkConnection("registrar", KSWRegistrar::shared().connection()),
            checkOfSession("agent", "com.velmont.kestrelwoodagent",
                           "kestrelwoodagent.socket kestrelwoodagent-notify.socket", "kestrelwoodagent"),
            checkOfSession("notifications", "com.velmont.kestrelwood.notifications",
                           "kestrelwoodd-notifications.socket", "kestrelwoodd --notifications")};
}

}  // namespace tools::kswctl
