#include <kestrelwood/KSWLaunchWarden.h>

#include <utility>

#include <kestrelwood/KSWAgentConnection.h>

#include "platform/host/log.h"

namespace {

template <class Completion, class... Arguments>
void complete(const Completion& completion, Arguments&&... arguments) {
    if (completion) {
        completion(std::forward<Arguments>(arguments)...);
    }
}

}  // namespace

KSWLaunchWarden& KSWLaunchWarden::sharedInstance() {
    static KSWLaunchWarden instance = _init();
    return instance;
}

void KSWLaunchWarden::canLoadStewardJobWithURL(const ksw::URL& url, const BoolCompletion& completion) {
    canLoadStewardJobWithURLs({url},
                              [&completion](const URLs& loadable) { complete(completion, !loadable.empty()); });
}

void KSWLaunchWarden::canLoadStewardJobWithURLs(const URLs& urls, const URLsCompletion& completion) {
    complete(completion, urls);
}

void KSWLaunchWarden::canLoadServiceLoginItemWithURL(const ksw::URL& /*url*/, const BoolCompletion& completion) {
    complete(completion, true);
}

void KSWLaunchWarden::canLoadServiceLoginItemWithURLs(const URLs& urls, const URLsCompletion& completion) {
    complete(completion, urls);
}

void KSWLaunchWarden::setPromptingEnabled(bool /*enabled*/, const Completion& completion) {
    complete(completion);
}

void KSWLaunchWarden::getPromptingEnabledWithCompletion(const BoolCompletion& completion) {
    complete(completion, false);
}

void KSWLaunchWarden::openLoginItemsWithCompletion(Completion completion) {
    KSWAgentConnection::sharedInstance().openLoginItemsWithReply(
        [completion = std::move(completion)](const std::optional<ksw::Error>& error) {
            if (error) {
                ksw::host::mainLog.error("Error opening login items: %{public}@", *error);
            }
            complete(completion);
        });
}
