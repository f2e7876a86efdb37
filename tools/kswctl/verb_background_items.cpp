// What runs in the background, and what its user decides about it, by way of the agent of the session.
#include <future>
#include <optional>
#include <utility>
#include <variant>

#include <kestrelwood/KSWAgentConnection.h>

#include "tools/kswctl/agent_items.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

/// What a person looks for in a list.
Record rowOf(const Record& item) {
    return Record::object({{"identifier", item["identifier"]},
                           {"type", item["typeText"]},
                           {"election", item["userElectionText"]},
                           {"name", item["name"]},
                           {"path", item["path"]}});
}

}  // namespace

ExitStatus listBackgroundItems(const Options& options) {
    return printFetched(backgroundItemsOrComplaint(), rowOf, options);
}

ExitStatus electBackgroundItem(const Options& options) {
    const auto answer = backgroundItemOrComplaint(options);
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        return *status;
    }
    const auto& item = std::get<std::shared_ptr<KSWBackgroundItem>>(answer);
    const std::int64_t election =
        options.verb == Verb::BackgroundItemsAllow ? KSWUserElectionAllowed : KSWUserElectionDisallowed;
    std::promise<std::optional<ksw::Error>> promise;
    KSWAgentConnection::sharedInstance().setUserElection(
        election, std::shared_ptr<const KSWBackgroundItem>(item),
        [&](std::optional<ksw::Error> error) { promise.set_value(std::move(error)); });
    const std::optional<ksw::Error> failure = promise.get_future().get();
    if (!failure) {
        item->setUserElection(election);
    }
    return printOutcome(failure, recordOf(*item), options);
}

}  // namespace tools::kswctl
