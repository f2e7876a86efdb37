// kestrelwoodagent: keeps the login items of one user, and shows the user what runs in the background.
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <optional>
#include <string>

#include "platform/host/home_folder.h"
#include "platform/host/user_folders.h"
#include "servers/common/command_line.h"
#include "servers/common/descriptor_limit.h"
#include "servers/common/notifier.h"
#include "servers/common/state_folder.h"
#include "servers/common/stop_signals.h"
#include "servers/kestrelwoodagent/agent.h"
#include "servers/kestrelwoodagent/log.h"
#include "servers/kestrelwoodagent/login_items.h"

namespace {

using namespace ksw;

constexpr std::string_view kName = "kestrelwoodagent";
constexpr std::string_view kHelp = R"(Usage: kestrelwoodagent [--help | --version]

Keeps the login items of the calling user, and shows and decides for the user what runs in the
background, which it asks the management daemon about. It serves com.velmont.kestrelwoodagent, and
tells whoever observes it of changes through notify, on sockets in $XDG_RUNTIME_DIR/kestrelwood, which
it takes from the service manager or binds itself. It keeps login items in
$XDG_STATE_HOME/kestrelwood/loginitems.db. SIGTERM and SIGINT end it.

  -h, --help     print this and exit
  -V, --version  print the version and exit

Files, in the order in which they are looked for:
  $XDG_CONFIG_HOME/kestrelwood/agent.plist, /etc/kestrelwood/agent.plist,
  /usr/share/kestrelwood/agent.plist
                           a property list; SettingsProgram, an array of strings, is the command of
                           the user's settings program
Environment:
  XDG_RUNTIME_DIR          default: /run/user/UID
  XDG_STATE_HOME           default: ~/.local/state
  XDG_CONFIG_HOME          default: ~/.config
  XDG_DATA_HOME            where login items are imported from; default: ~/.local/share
  KESTRELWOOD_ROOT         folder under which all of these places are looked up
  KESTRELWOOD_LOG=debug    log everything, to standard error too
  KESTRELWOOD_LOG_PRIVATE=1
                           write values that are not public into the log
)";

/// The folder of state is made below the user's home where it lies in it: what is above is not the agent's to make.
Result<servers::StateFolder> takeStateFolder() {
    const std::optional<std::string> folder = host::userStateFolder();
    if (!folder) {
        return Error(kPosixErrorDomain, ENOENT, "the user has no home");
    }
    const std::string path = *folder + "/kestrelwood";
    const std::string home = host::homeFolder(::geteuid()).value_or("");
    const std::string base = path.starts_with(home + "/") ? home : "";
    return servers::StateFolder::take(base, std::string_view(path).substr(base.size()), kName, 0700);
}

Status serve(agentserver::LoginItems& items, servers::StopSignals& stop, const servers::Notifier& notifier) {
    agentserver::Agent agent(items, ipc::NotificationCenter::of(ipc::Domain::System), ::geteuid());
    if (Status started = agent.start(); !started) {
        return started;
    }
    notifier.ready();
    Status waited = stop.wait(notifier);
    notifier.stopping();
    return waited;
}

Status run() {
    // All that it makes is its user's alone.
    umask(077);
    // Nobody waits for the settings program.
    signal(SIGCHLD, SIG_IGN);
    if (const Status raised = servers::raiseDescriptorLimit(); !raised) {
        agentserver::logError(raised.error().localizedDescription());
    }
    const servers::Notifier notifier = servers::Notifier::fromEnvironment();
    Result<servers::StopSignals> stop = servers::StopSignals::block();
    if (!stop) {
        return stop.error();
    }
    const Result<servers::StateFolder> folder = takeStateFolder();
    if (!folder) {
        return folder.error();
    }
    std::optional<std::string> loss;
    Result<std::unique_ptr<agentserver::LoginItems>> items =
        agentserver::openLoginItems(folder->at(agentserver::kStoreFile), loss);
    if (loss) {
        servers::complain(kName, *loss);
    }
    if (!items) {
        return items.error();
    }
    Status served = serve(**items, *stop, notifier);
    if (Status moved = (*items)->checkpoint(); !moved) {
        // The next start reads the journal, so nothing is lost.
        agentserver::logError(moved.error().localizedDescription());
    }
    return served;
}

}  // namespace

int main(int count, char** arguments) {
    if (const std::optional<int> done = servers::readCommandLine(count, arguments, kName, kHelp)) {
        return *done;
    }
    const Status done = run();
    return done ? 0 : servers::failed(kName, done.error());
}
