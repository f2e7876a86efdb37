// What opens when the user logs in, as the agent of the session keeps it.
#include <optional>
#include <utility>
#include <variant>

#include <kestrelwood/KSWAgentConnection.h>

#include "tools/common/outcome.h"
#include "tools/kswctl/agent_items.h"
#include "tools/kswctl/place.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

/// What a person looks for in a list.
Record rowOf(const Record& item) {
    return Record::object({{"identifier", item["identifier"]},
                           {"name", item["name"]},
                           {"hidden", item["hidden"]},
                           {"path", item["path"]}});
}

}  // namespace

ExitStatus listLoginItems(const Options& options) {
    return printFetched(loginItemsOrComplaint(), rowOf, options);
}

ExitStatus addLoginItem(const Options& options) {
    const std::optional<ksw::URL> url = urlOf(options.location);
    const KSWLoginItem::Bookmark bookmark = url ? KSWLoginItem::initWithURL(url)->bookmark() : std::nullopt;
    if (!bookmark) {
        complain("'" + options.location + "' is no file that is there");
        return ExitStatus::Failed;
    }
    const auto item = KSWLoginItem::initWithType(KSWItemTypeUserItem, std::nullopt, bookmark, options.opensHidden);
    std::optional<ksw::Error> failure;
    KSWAgentConnection::sharedInstance().addLoginItem(
        item, [&](std::optional<ksw::Error> error) { failure = std::move(error); });
    return printOutcome(failure, recordOf(*item), options);
}

ExitStatus removeLoginItem(const Options& options) {
    const auto answer = loginItemOrComplaint(options);
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        return *status;
    }
    const auto& item = std::get<std::shared_ptr<KSWLoginItem>>(answer);
    std::optional<ksw::Error> failure;
    KSWAgentConnection::sharedInstance().removeLoginItem(
        item, [&](std::optional<ksw::Error> error) { failure = std::move(error); });
    return printOutcome(failure, recordOf(*item), options);
}

}  // namespace tools::kswctl
