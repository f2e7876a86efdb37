#include "tools/kswctl/agent_items.h"

#include <algorithm>
#include <future>
#include <string_view>
#include <utility>

#include <kestrelwood/KSWAdditions.h>
#include <kestrelwood/KSWAgentConnection.h>
#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/resource_keys.h>

#include "tools/common/outcome.h"
#include "tools/kswctl/asker.h"

namespace tools::kswctl {
namespace {

template <class Items>
using Asked = std::variant<Items, ksw::Error>;

ksw::Error noAnswer() {
    return {ksw::ConnectionError::ReplyInvalid, "the agent answered nothing"};
}

template <class Items>
Asked<Items> askedOf(std::optional<Items> items, std::optional<ksw::Error> error) {
    if (items) {
        return *std::move(items);
    }
    return error ? *std::move(error) : noAnswer();
}

template <class Items>
std::variant<Items, ExitStatus> orComplaint(Asked<Items> asked) {
    if (const auto* error = std::get_if<ksw::Error>(&asked)) {
        return complainOfAgent(*error);
    }
    return std::get<Items>(std::move(asked));
}

template <class Item>
std::string uuidOf(const Item& item) {
    return item.identifier() ? item.identifier()->string() : std::string();
}

template <class Item>
std::string pathOf(const Item& item) {
    const auto value =
        item.bookmark() ? __ksw_resourcePropertyForKey(*item.bookmark(), ksw::kResourceKeyPath) : std::nullopt;
    const auto* path = value ? value->template as<std::string>() : nullptr;
    return path != nullptr ? *path : std::string();
}

std::string upperCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char letter) {
        return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 32) : letter;
    });
    return text;
}

/// Those that the text names in full; without any, those whose identifier begins so.
template <class Item>
std::vector<std::shared_ptr<Item>> meant(const std::vector<std::shared_ptr<Item>>& items, const std::string& text) {
    const std::string uuid = upperCase(text);
    std::vector<std::shared_ptr<Item>> named;
    std::vector<std::shared_ptr<Item>> begun;
    for (const auto& item : items) {
        if (uuidOf(*item) == uuid || pathOf(*item) == text || item->name() == text) {
            named.push_back(item);
        } else if (uuidOf(*item).starts_with(uuid)) {
            begun.push_back(item);
        }
    }
    return named.empty() ? begun : named;
}

template <class Item>
std::variant<std::shared_ptr<Item>, ExitStatus> oneOf(
    std::variant<std::vector<std::shared_ptr<Item>>, ExitStatus> answer, const std::string& text) {
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        return *status;
    }
    const auto found = meant(std::get<std::vector<std::shared_ptr<Item>>>(answer), text);
    if (found.size() == 1) {
        return found.front();
    }
    complain(found.empty() ? "no item has the identifier, path or name '" + text + "'"
                           : "'" + text + "' is ambiguous: " + std::to_string(found.size()) + " items");
    return found.empty() ? ExitStatus::NoSuchItem : ExitStatus::Usage;
}

const char* electionText(std::int64_t election) {
    switch (election) {
        case KSWUserElectionNone:
            return "none";
        case KSWUserElectionAllowed:
            return "allowed";
        case KSWUserElectionDisallowed:
            return "disallowed";
        default:
            return "unknown";
    }
}

template <class Item>
Record commonRecordOf(const Item& item) {
    const std::string path = pathOf(item);
    const std::optional<ksw::URL> url = item.bookmark() ? __ksw_resolveBookmark(*item.bookmark()) : std::nullopt;
    return Record::object({{"identifier", item.identifier() ? Record(uuidOf(item)) : Record(nullptr)},
                           {"name", orNull(item.name())},
                           {"path", path.empty() ? Record(nullptr) : Record(path)},
                           {"url", url ? Record(url->absoluteString()) : Record(nullptr)},
                           {"type", item.type()},
                           {"typeText", KSWItemTypeDescription(item.type())}});
}

}  // namespace

Asked<LoginItems> askForLoginItems() {
    Asked<LoginItems> asked = noAnswer();
    KSWAgentConnection::sharedInstance().getLoginItemsWithTypeMask(
        KSWItemTypeAll, [&](KSWAgentConnection::LoginItems items, std::optional<ksw::Error> error) {
            asked = askedOf(std::move(items), std::move(error));
        });
    return asked;
}

Asked<BackgroundItems> askForBackgroundItems() {
    std::promise<Asked<BackgroundItems>> promise;
    KSWAgentConnection::sharedInstance().getBackgroundItemsWithReply(
        [&](KSWAgentConnection::BackgroundItems items, std::optional<ksw::Error> error) {
            promise.set_value(askedOf(std::move(items), std::move(error)));
        });
    return promise.get_future().get();
}

std::variant<LoginItems, ExitStatus> loginItemsOrComplaint() {
    return orComplaint(askForLoginItems());
}

std::variant<BackgroundItems, ExitStatus> backgroundItemsOrComplaint() {
    return orComplaint(askForBackgroundItems());
}

std::variant<std::shared_ptr<KSWLoginItem>, ExitStatus> loginItemOrComplaint(const Options& options) {
    return oneOf(loginItemsOrComplaint(), options.item);
}

std::variant<std::shared_ptr<KSWBackgroundItem>, ExitStatus> backgroundItemOrComplaint(const Options& options) {
    return oneOf(backgroundItemsOrComplaint(), options.item);
}

ExitStatus complainOfAgent(const ksw::Error& error) {
    if (error.domain() == KSWErrorDomain) {
        complain(KSWErrorString(error.code()));
        return exitStatusOfCode(error.code());
    }
    const std::string text(error.localizedDescription().empty() ? error.description()
                                                                : std::string(error.localizedDescription()));
    if (error.domain() != ksw::kConnectionErrorDomain) {
        complain(text);
        return ExitStatus::Failed;
    }
    // The agent answers so, too, when the daemon behind it does not.
    complain("no agent or daemon answers: " + text);
    return ExitStatus::Unreachable;
}

Record recordOf(const KSWLoginItem& item) {
    Record record = commonRecordOf(item);
    record["hidden"] = item.hidden();
    return record;
}

Record recordOf(const KSWBackgroundItem& item) {
    Record record = commonRecordOf(item);
    record["userElection"] = item.userElection();
    record["userElectionText"] = electionText(item.userElection());
    return record;
}

ExitStatus printOutcome(const std::optional<ksw::Error>& error, const Record& item, const Options& options) {
    if (error) {
        return complainOfAgent(*error);
    }
    print(item, formOf(options));
    return ExitStatus::Done;
}

}  // namespace tools::kswctl
