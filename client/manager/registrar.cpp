// registrar.cpp: the lightweight client.

#include <kestrelwood/KSWRegistrar.h>

#include "client/manager/shared_requests.h"
#include "client/protocol/registrar_service.h"
#include "client/protocol/services.h"
#include "platform/base/never_destroyed.h"
#include "platform/ipc/service.h"

using ksw::Uid;
using ksw::client::RequestActivity;
using ksw::client::Subject;
namespace methods = ksw::protocol::registrar;

struct KSWRegistrar::State {
    // Constant after construction.
    std::unique_ptr<ksw::ServiceConnection> connection;
    ksw::client::Requester requester;

    std::vector<Uid> uids;
};

KSWRegistrar& KSWRegistrar::shared() {
    static ksw::NeverDestroyed<std::shared_ptr<KSWRegistrar>> instance(init());
    return **instance;
}

std::shared_ptr<KSWRegistrar> KSWRegistrar::init() {
    return std::shared_ptr<KSWRegistrar>(new KSWRegistrar());
}

KSWRegistrar::KSWRegistrar() : state_(std::make_unique<State>()) {
    state_->connection = ksw::ipc::openService(ksw::kRegistrarService, ksw::ipc::managementDaemonOptions(),
                                               methods::serviceInterface());
    state_->requester = {ksw::ipc::connectionOf(state_->connection.get()), "KSWRegistrar"};
}

KSWRegistrar::~KSWRegistrar() = default;

ksw::ServiceConnection* KSWRegistrar::connection() const {
    return state_->connection.get();
}

const std::vector<Uid>& KSWRegistrar::UIDs() const {
    return state_->uids;
}

void KSWRegistrar::setUIDs(std::vector<Uid> uids) {
    state_->uids = std::move(uids);
}

std::int64_t KSWRegistrar::registerItem(std::shared_ptr<KSWItem>* item, const OptionalURL& bundleURL,
                                        std::int64_t type, const OptionalURL& relativeURL,
                                        const Configuration& configuration, Uid uid) {
    return ksw::client::registerItem(state_->requester, methods::kRegisterItemOfURL,
                                     Subject<ksw::URL>{bundleURL, type, relativeURL, configuration, uid}, item);
}

bool KSWRegistrar::getEffectiveDisposition(ksw::DispositionPlace disposition, std::optional<ksw::Data>* LWCR,
                                           const OptionalURL& appURL, std::int64_t type,
                                           const OptionalURL& relativeURL, const Configuration& configuration,
                                           Uid uid) {
    const RequestActivity activity("KSWRegistrar.getEffectiveDisposition");
    return askEffectiveDisposition(state_->requester, methods::kEffectiveDispositionOfURL,
                                   Subject<ksw::URL>{appURL, type, relativeURL, configuration, uid}, disposition,
                                   LWCR);
}

std::shared_ptr<KSWItem> KSWRegistrar::fetchItemWithAppURL(const OptionalURL& appURL, std::int64_t type,
                                                           const OptionalURL& relativeURL,
                                                           const Configuration& configuration, Uid uid) {
    const RequestActivity activity("KSWRegistrar.fetchItemWithAppURL");
    return ksw::client::firstItemOf(askForItem(
        state_->requester, methods::kItemOfURL, Subject<ksw::URL>{appURL, type, relativeURL, configuration, uid},
        ksw::Literal{"-[KSWRegistrar fetchItemWithAppURL:type:relativeURL:configuration:uid:]"}));
}
