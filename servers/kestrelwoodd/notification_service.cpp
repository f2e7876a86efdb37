#include "servers/kestrelwoodd/notification_service.h"

#include <tuple>

#include <unistd.h>

#include "client/protocol/services.h"
#include "platform/host/desktop.h"
#include "platform/ipc/server.h"
#include "servers/common/notifier.h"
#include "servers/common/stop_signals.h"
#include "servers/kestrelwoodd/callers.h"
#include "servers/kestrelwoodd/notification_methods.h"

namespace ksw::daemon {

namespace {

using ipc::Method;
using ipc::Reply;

template <class... A, class Operation>
void serve(ipc::Dispatcher& dispatcher, Notices& notices, Uid user, const Method<Reply<bool>(A...)>& method,
           Rule rule, Operation operation) {
    dispatcher.on(method,
                  [&notices, user, callers = Callers(), rule, operation](
                      const ipc::RequestContext& context, ipc::Responder<bool> responder, const A&... arguments) {
                      const bool mayTell = isAllowed(rule, callers.callerOf(context.peer), 0, user);
                      responder.answer(mayTell && (notices.*operation)(arguments...));
                  });
}

}  // namespace

ipc::Dispatcher notificationService(Notices& notices, Uid user) {
    ipc::Dispatcher dispatcher;
    std::apply(
        [&](const auto&... row) { (serve(dispatcher, notices, user, row.method, row.rule, row.operation), ...); },
        kNotificationMethods);
    return dispatcher;
}

Status serveNotifications() {
    const servers::Notifier notifier = servers::Notifier::fromEnvironment();
    Result<servers::StopSignals> stop = servers::StopSignals::block();
    if (!stop) {
        return stop.error();
    }
    host::Desktop desktop;
    Notices notices([&desktop](const host::DesktopNotice& notice) { return desktop.show(notice); });
    ipc::ServerOptions options;
    options.workers = 2;
    ipc::Server server(options);
    const Uid user = ::geteuid();
    if (Status listening =
            server.listen(kNotificationsService, ipc::Domain::Session, notificationService(notices, user), user);
        !listening) {
        return listening;
    }
    if (Status started = server.start(); !started) {
        return started;
    }
    notifier.ready();
    Status waited = stop->wait(notifier);
    notifier.stopping();
    server.stop();
    return waited;
}

}  // namespace ksw::daemon
