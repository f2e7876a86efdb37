// kestrelwoodd: keeps the records of all background items of this host and answers what may launch.
#include <sys/stat.h>

#include <memory>
#include <string>

#include "client/protocol/services.h"
#include "client/protocol/user_data_change.h"
#include "platform/ipc/notification_hub.h"
#include "platform/ipc/server.h"
#include "servers/common/command_line.h"
#include "servers/common/descriptor_limit.h"
#include "servers/common/hub_server.h"
#include "servers/common/notifier.h"
#include "servers/common/stop_signals.h"
#include "servers/kestrelwoodd/authority.h"
#include "servers/kestrelwoodd/log.h"
#include "servers/kestrelwoodd/notification_service.h"
#include "servers/kestrelwoodd/open_registry.h"
#include "servers/kestrelwoodd/reading_as.h"
#include "servers/kestrelwoodd/services.h"

namespace {

using namespace ksw;

constexpr std::string_view kName = "kestrelwoodd";
constexpr std::string_view kHelp = R"(Usage: kestrelwoodd [--notifications | --help | --version]

Keeps the records of all background items of this host and answers which of them may launch.
It serves com.velmont.kestrelwood, com.velmont.kestrelwood.registrar and
com.velmont.kestrelwood.roster, and tells whoever observes it of changes through notify, on
sockets in /run/kestrelwood, which it takes from the service manager or binds itself. It keeps its records in
/var/lib/kestrelwood/kestrelwood.db. SIGTERM and SIGINT end it.

With --notifications it tells the calling user of background items instead: it serves
com.velmont.kestrelwood.notifications in /run/user/UID/kestrelwood, and shows what it is given through
the desktop's notification service, on the session's bus; without one it goes into the log.

      --notifications  serve the calling user's notifications
  -h, --help           print this and exit
  -V, --version        print the version and exit

Environment:
  KESTRELWOOD_ROOT         folder under which all of these places are looked up
  KESTRELWOOD_LOG=debug    log everything, to standard error too
  KESTRELWOOD_LOG_PRIVATE=1
                           write values that are not public into the log
  DBUS_SESSION_BUS_ADDRESS, XDG_RUNTIME_DIR
                           where the session's bus is (with --notifications)
)";

Result<std::unique_ptr<daemon::Registry>> openRegistry(const servers::StateFolder& folder) {
    // The store is nobody else's to read; the sockets, made later, are for all.
    const mode_t former = umask(077);
    Result<daemon::OpenedRegistry> opened = daemon::openRegistry(folder.at(daemon::kStoreFile));
    umask(former);
    if (!opened) {
        return opened.error();
    }
    if (opened->loss) {
        servers::complain(kName, *opened->loss);
    }
    return std::move(opened->registry);
}

Status startServer(ipc::Server& server, daemon::Operations& operations, daemon::Housekeeping& housekeeping,
                   const daemon::Announce& announce) {
    struct Service {
        std::string_view name;
        ipc::Dispatcher dispatcher;
    };
    const Service services[] = {{kManagerService, managerService(operations, housekeeping, announce)},
                                {kRosterService, rosterService(housekeeping, announce)},
                                {kRegistrarService, registrarService(operations, announce)}};
    for (const auto& [name, dispatcher] : services) {
        if (Status listening = server.listen(name, ipc::Domain::System, dispatcher); !listening) {
            return listening;
        }
    }
    return server.start();
}

Status serve(daemon::Registry& registry, servers::StopSignals& stop, const servers::Notifier& notifier) {
    daemon::Operations operations(registry);
    ipc::NotificationHub hub(ipc::Domain::System, protocol::coalesced);
    const daemon::Announce announce = [&hub](const protocol::UserDataChange& change, pid_t cause,
                                             ipc::Audience audience) {
        hub.post(protocol::notificationOf(change), cause, audience);
    };
    daemon::Housekeeping housekeeping(registry, operations, announce, daemon::hostAuthority());
    ipc::Server hubServer(servers::hubServerOptions());
    ipc::Server server;
    if (Status started = servers::startHubServer(hubServer, hub, ipc::Domain::System); !started) {
        return started;
    }
    if (Status started = startServer(server, operations, housekeeping, announce); !started) {
        return started;
    }
    notifier.ready();
    Status waited = stop.wait(notifier);
    notifier.stopping();
    // Observers hear of what the last requests change.
    server.stop();
    housekeeping.stop();
    hubServer.stop();
    if (Status moved = registry.checkpoint(); !moved) {
        // The next start reads the journal, so nothing is lost.
        daemon::logError(moved.error().localizedDescription());
    }
    return waited;
}

Status run() {
    if (const Status raised = servers::raiseDescriptorLimit(); !raised) {
        daemon::logError(raised.error().localizedDescription());
    }
    const servers::Notifier notifier = servers::Notifier::fromEnvironment();
    daemon::leaveSupplementaryGroups();
    Result<servers::StopSignals> stop = servers::StopSignals::block();
    if (!stop) {
        return stop.error();
    }
    Result<servers::StateFolder> folder = daemon::takeStateFolder();
    if (!folder) {
        return folder.error();
    }
    Result<std::unique_ptr<daemon::Registry>> registry = openRegistry(*folder);
    if (!registry) {
        return registry.error();
    }
    return serve(**registry, *stop, notifier);
}

}  // namespace

int main(int count, char** arguments) {
    bool isForUser = false;
    const servers::Flag flags[] = {{"notifications", &isForUser}};
    if (const std::optional<int> done = servers::readCommandLine(count, arguments, kName, kHelp, flags)) {
        return *done;
    }
    const Status done = isForUser ? daemon::serveNotifications() : run();
    return done ? 0 : servers::failed(kName, done.error());
}
