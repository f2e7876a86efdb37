#include "servers/kestrelwoodd/services.h"

#include <string>

#include "platform/host/host_root.h"
#include "platform/host/peer_identity.h"
#include "servers/kestrelwoodd/answers.h"
#include "servers/kestrelwoodd/served_methods.h"

namespace ksw::daemon {

namespace {

using ipc::Dispatcher;
using ipc::Method;
using ipc::Reply;
using ipc::RequestContext;
using ipc::Responder;

/// Tells callers from their connections; asks beforehand who owns the host root.
class Callers {
public:
    Caller callerOf(const host::PeerIdentity& peer) const {
        return {peer.uid(), peer.auditToken().effectiveGid(), owner_ != kNoUser && peer.uid() == owner_};
    }

private:
    Uid owner_ = host::hostRootOwner();
};

template <class... R, class... A>
void serve(Dispatcher& dispatcher, Operations& operations, const Method<Reply<R...>(A...)>& method, Rule rule,
           Operations::Operation operation) {
    dispatcher.on(method, [&operations, callers = Callers(), rule, operation](
                              const RequestContext& context, Responder<R...> responder, const A&... arguments) {
        const Caller caller = callers.callerOf(context.peer);
        const Answer answer = operations.perform(operation, rule, subjectOf(arguments...), caller);
        std::apply([&](const R&... reply) { responder.answer(reply...); }, replyOf<std::tuple<R...>>(answer));
    });
}

template <class Table>
Dispatcher serviceOf(const Table& table, Operations& operations) {
    Dispatcher dispatcher;
    std::apply(
        [&](const auto&... row) { (serve(dispatcher, operations, row.method, row.rule, row.operation), ...); },
        table);
    return dispatcher;
}

/// Refuses by name what the contract has and the daemon does not serve.
void refuseTheRest(Dispatcher& dispatcher, const ipc::ServiceInterface& interface) {
    for (const ipc::InterfaceMethod& method : interface.methods) {
        if (dispatcher.find(method.selector) == nullptr) {
            dispatcher.refuse(method.selector,
                              "kestrelwoodd does not serve \"" + std::string(method.selector) + "\"");
        }
    }
}

}  // namespace

Dispatcher managerService(Operations& operations) {
    Dispatcher dispatcher = serviceOf(kManagerMethods, operations);
    dispatcher.on(manager::kFetchUserIdentifiersAndUIDs,
                  [&operations, callers = Callers()](const RequestContext& context,
                                                     Responder<std::optional<Dictionary>> responder) {
                      responder.answer(operations.users(callers.callerOf(context.peer)));
                  });
    refuseTheRest(dispatcher, GetManagerServiceInterface());
    return dispatcher;
}

Dispatcher registrarService(Operations& operations) {
    return serviceOf(kRegistrarMethods, operations);
}

}  // namespace ksw::daemon
