// answering.h: has a scripted daemon keep what a request of any method brought, and answer it.
#pragma once

#include <tuple>
#include <type_traits>
#include <utility>

#include "tests/client/manager/list_daemon.h"

namespace ksw::test {

/// What the requests of a method brought.
template <class Method>
struct SeenArguments;
template <class... R, class... A>
struct SeenArguments<ipc::Method<ipc::Reply<R...>(A...)>> : Seen<std::tuple<A...>> {};

/// Has every request of the method answered so. `seen` outlives the daemon.
template <class... R, class... A>
void answer(ScriptedDaemon& daemon, const ipc::Method<ipc::Reply<R...>(A...)>& method, Seen<std::tuple<A...>>& seen,
            std::type_identity_t<R>... reply) {
    daemon.on(method,
              [&seen, reply...](const ipc::RequestContext&, ipc::Responder<R...> responder, A... arguments) {
                  seen.add(std::tuple<A...>(std::move(arguments)...));
                  responder.answer(reply...);
              });
}

/// What the requests of a method brought, declared by the method's name.
template <const auto& method>
using SeenBy = SeenArguments<std::remove_cvref_t<decltype(method)>>;

/// The lines of the log without those of the framework's debugging.
inline std::vector<host::LogLine> toldLines(const host::LogCapture& log) {
    std::vector<host::LogLine> told = log.lines();
    std::erase_if(told, [](const host::LogLine& line) { return line.level == host::LogLevel::Debug; });
    return told;
}

}  // namespace ksw::test
