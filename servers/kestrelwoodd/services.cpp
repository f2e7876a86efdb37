#include "servers/kestrelwoodd/services.h"

#include <new>

#include "servers/kestrelwoodd/answers.h"
#include "servers/kestrelwoodd/callers.h"
#include "servers/kestrelwoodd/log.h"
#include "servers/kestrelwoodd/served_methods.h"

namespace ksw::daemon {

namespace {

using ipc::Dispatcher;
using ipc::Method;
using ipc::Reply;
using ipc::RequestContext;
using ipc::Responder;

// The arguments of a request in the form that its operation takes.

template <class... A>
Answer perform(Operations& operations, Operations::Operation operation, Rule rule, const Caller& caller,
               const A&... arguments) {
    return operations.perform(operation, rule, subjectOf(arguments...), caller);
}

template <class Thing>
Answer perform(Operations& operations, Operations::RecordOperation<Thing> operation, Rule rule,
               const Caller& caller, const Thing& thing, Uid uid) {
    return operations.perform(operation, rule, {thing, uid, caller});
}

Answer perform(Operations& operations, Operations::PlainOperation operation, Rule rule, const Caller& caller) {
    return operations.perform(operation, rule, caller);
}

template <class... P, class... A>
Report perform(Housekeeping& housekeeping, Housekeeping::Operation<P...> operation, Rule rule, const Caller& caller,
               const A&... arguments) {
    return housekeeping.perform(operation, rule, caller, arguments...);
}

/// The reply comes whether or not there is memory to tell anybody.
void announceAll(const Announce& announce, const std::vector<protocol::UserDataChange>& changes, pid_t cause,
                 ipc::Audience audience) try {
    for (const protocol::UserDataChange& change : changes) {
        announce(change, cause, audience);
    }
} catch (const std::bad_alloc&) {
    logError("no memory to announce a change");
}

template <class Server, class... R, class... A, class Operation>
void serve(Dispatcher& dispatcher, Server& server, const Announce& announce,
           const Method<Reply<R...>(A...)>& method, Rule rule, Operation operation) {
    dispatcher.on(method, [&server, announce, callers = Callers(), rule, operation](
                              const RequestContext& context, Responder<R...> responder, const A&... arguments) {
        const Caller caller = callers.callerOf(context.peer);
        const auto answer = perform(server, operation, rule, caller, arguments...);
        // What is on disk is told at once: others are no further from it than the caller. The caller's own process
        // knows, and would only be woken before them.
        announceAll(announce, answer.changes, context.peer.pid(), ipc::Audience::Others);
        reply(responder, answer);
        announceAll(announce, answer.changes, context.peer.pid(), ipc::Audience::Cause);
    });
}

template <class Table, class Server>
void serveAll(Dispatcher& dispatcher, const Table& table, Server& server, const Announce& announce) {
    std::apply(
        [&](const auto&... row) {
            (serve(dispatcher, server, announce, row.method, row.rule, row.operation), ...);
        },
        table);
}

}  // namespace

Dispatcher managerService(Operations& operations, Housekeeping& housekeeping, const Announce& announce) {
    Dispatcher dispatcher;
    serveAll(dispatcher, kManagerMethods, operations, announce);
    serveAll(dispatcher, kHouseholdMethods, housekeeping, announce);
    return dispatcher;
}

Dispatcher registrarService(Operations& operations, const Announce& announce) {
    Dispatcher dispatcher;
    serveAll(dispatcher, kRegistrarMethods, operations, announce);
    return dispatcher;
}

Dispatcher rosterService(Housekeeping& housekeeping, const Announce& announce) {
    Dispatcher dispatcher;
    serveAll(dispatcher, kRosterMethods, housekeeping, announce);
    return dispatcher;
}

}  // namespace ksw::daemon
