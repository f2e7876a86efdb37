#include "servers/kestrelwoodagent/services.h"

#include <memory>
#include <new>
#include <utility>

#include "client/protocol/agent_service.h"
#include "platform/host/peer_identity.h"
#include "servers/kestrelwoodagent/errors.h"
#include "servers/kestrelwoodagent/log.h"
#include "servers/kestrelwoodagent/roster_file.h"
#include "servers/kestrelwoodagent/settings_program.h"

namespace ksw::agentserver {

namespace {

namespace agent = protocol::agent;
using ipc::RequestContext;
using ipc::Responder;
using protocol::MaybeError;

/// Who may ask, and how whoever observes is told.
class Desk {
public:
    Desk(Announce announce, Served served) : announce_(std::move(announce)), served_(served) {}

    bool serves(const host::PeerIdentity& peer) const { return served_.includes(peer.uid()); }

    /// Answers a request that may have changed something, and tells of it.
    void answer(Responder<MaybeError>& responder, const MaybeError& error, bool hasChanged) const {
        const pid_t cause = responder.peer().pid();
        if (hasChanged) {
            tell(cause, ipc::Audience::Others);
        }
        responder.answer(error);
        if (hasChanged) {
            tell(cause, ipc::Audience::Cause);
        }
    }
    void answer(Responder<MaybeError>& responder, const Result<Outcome>& outcome) const {
        answer(responder, outcome ? MaybeError() : MaybeError(outcome.error()),
               outcome && *outcome == Outcome::Changed);
    }

private:
    /// The reply comes whether or not there is memory to tell anybody.
    void tell(pid_t cause, ipc::Audience audience) const try {
        announce_(cause, audience);
    } catch (const std::bad_alloc&) {
        logError("no memory to announce a change");
    }

    const Announce announce_;
    const Served served_;
};

void refuse(Responder<MaybeError>& responder) {
    responder.answer(KSWErrorWithCode(KSWErrorPermissionDenied));
}
template <class Items>
void refuse(Responder<Items, MaybeError>& responder) {
    responder.answer(std::nullopt, KSWErrorWithCode(KSWErrorPermissionDenied));
}

/// Serves a method with `act(responder, arguments...)` for those who may ask. There is no other way to serve one.
template <class... R, class... A, class Act>
void serve(ipc::Dispatcher& dispatcher, const std::shared_ptr<const Desk>& desk,
           const ipc::Method<ipc::Reply<R...>(A...)>& method, Act act) {
    dispatcher.on(method, [desk, act = std::move(act)](const RequestContext& context, Responder<R...> responder,
                                                       const A&... arguments) {
        if (desk->serves(context.peer)) {
            act(std::move(responder), arguments...);
        } else {
            refuse(responder);
        }
    });
}

void serveLists(ipc::Dispatcher& dispatcher, const std::shared_ptr<const Desk>& desk, const LoginItems& loginItems,
                BackgroundItems& backgroundItems) {
    serve(dispatcher, desk, agent::kGetLoginItems,
          [&loginItems](Responder<agent::LoginItems, MaybeError> responder, std::uint64_t mask) {
              responder.answer(loginItems.matching(mask), std::nullopt);
          });
    using ItemsResponder = Responder<agent::BackgroundItems, MaybeError>;
    serve(dispatcher, desk, agent::kGetBackgroundItems, [&backgroundItems](ItemsResponder responder) {
        const auto kept = std::make_shared<ItemsResponder>(std::move(responder));
        backgroundItems.fetch(
            [kept](const agent::BackgroundItems& items, const MaybeError& error) { kept->answer(items, error); });
    });
}

void serveLoginItems(ipc::Dispatcher& dispatcher, const std::shared_ptr<const Desk>& desk, LoginItems& items) {
    serve(dispatcher, desk, agent::kAddLoginItem,
          [desk, &items](Responder<MaybeError> responder, const agent::LoginItemPointer& item) {
              desk->answer(responder, items.add(item));
          });
    serve(dispatcher, desk, agent::kRemoveLoginItem,
          [desk, &items](Responder<MaybeError> responder, const agent::LoginItemPointer& item) {
              desk->answer(responder, items.remove(item));
          });
    serve(dispatcher, desk, agent::kImportRosterLoginItems,
          [desk, &items](Responder<MaybeError> responder, bool deleteWhenDone) {
              desk->answer(responder, importRosterFile(items, deleteWhenDone));
          });
    serve(dispatcher, desk, agent::kOpenLoginItems, [](Responder<MaybeError> responder) {
        const Status opened = openSettings();
        responder.answer(opened ? MaybeError() : MaybeError(opened.error()));
    });
}

void serveElections(ipc::Dispatcher& dispatcher, const std::shared_ptr<const Desk>& desk, BackgroundItems& items) {
    const auto elect = [desk, &items](Responder<MaybeError> responder, std::int64_t election, const auto& which) {
        const auto kept = std::make_shared<Responder<MaybeError>>(std::move(responder));
        items.elect(election, which, [desk, kept](const MaybeError& error, bool hasChanged) {
            desk->answer(*kept, error, hasChanged);
        });
    };
    serve(dispatcher, desk, agent::kSetElectionForURL, elect);
    serve(dispatcher, desk, agent::kSetElectionForIdentifier, elect);
}

}  // namespace

Notification changeOfItems() {
    return {std::string(kKSWBackgroundItemsChangeNotification), Dictionary()};
}

ipc::Dispatcher agentService(LoginItems& loginItems, BackgroundItems& backgroundItems, const Announce& announce,
                             Served served) {
    ipc::Dispatcher dispatcher;
    const auto desk = std::make_shared<const Desk>(announce, served);
    serveLists(dispatcher, desk, loginItems, backgroundItems);
    serveLoginItems(dispatcher, desk, loginItems);
    serveElections(dispatcher, desk, backgroundItems);
    return dispatcher;
}

}  // namespace ksw::agentserver
