// agent_items.h: the login items and background items that the agent of the session has, and the one that the
// command line means.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <kestrelwood/KSWBackgroundItem.h>
#include <kestrelwood/KSWLoginItem.h>
#include <kestrelwood/values.h>

#include "tools/common/exit_status.h"
#include "tools/kswctl/options.h"
#include "tools/kswctl/record.h"

namespace tools::kswctl {

using LoginItems = std::vector<std::shared_ptr<KSWLoginItem>>;
using BackgroundItems = std::vector<std::shared_ptr<KSWBackgroundItem>>;

/// What the agent answers, waited for; else why it has no answer.
std::variant<LoginItems, ksw::Error> askForLoginItems();
std::variant<BackgroundItems, ksw::Error> askForBackgroundItems();

/// The same; when there is no answer standard error says why, and the status that follows from it is the answer.
std::variant<LoginItems, ExitStatus> loginItemsOrComplaint();
std::variant<BackgroundItems, ExitStatus> backgroundItemsOrComplaint();

/// The one item that the command line names. Standard error says when there is none, or several; then the status
/// that follows from it is the answer.
std::variant<std::shared_ptr<KSWLoginItem>, ExitStatus> loginItemOrComplaint(const Options& options);
std::variant<std::shared_ptr<KSWBackgroundItem>, ExitStatus> backgroundItemOrComplaint(const Options& options);

/// Says on standard error why the agent did not do it, and the status that follows.
ExitStatus complainOfAgent(const ksw::Error& error);

/// Items as they are printed.
Record recordOf(const KSWLoginItem& item);
Record recordOf(const KSWBackgroundItem& item);

/// Prints the items that were fetched, as `printList` does; when there was no answer the status is handed on.
template <class Items>
ExitStatus printFetched(const std::variant<Items, ExitStatus>& answer, Record (*rowOf)(const Record&),
                        const Options& options) {
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        return *status;
    }
    Record records = Record::array();
    for (const auto& item : std::get<Items>(answer)) {
        records.push_back(recordOf(*item));
    }
    printList(records, rowOf, options);
    return ExitStatus::Done;
}

/// What became of a request about an item, printed; `error` absent: it was done.
ExitStatus printOutcome(const std::optional<ksw::Error>& error, const Record& item, const Options& options);

}  // namespace tools::kswctl
