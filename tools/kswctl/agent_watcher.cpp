#include "tools/kswctl/agent_watcher.h"

#include <string>
#include <utility>
#include <variant>

#include <kestrelwood/KSWBackgroundItemController.h>
#include <kestrelwood/KSWLoginItemController.h>

#include "tools/kswctl/agent_items.h"

namespace tools::kswctl {
namespace {

template <class Items>
Known recordsOf(const Items& items) {
    Known records;
    for (const auto& item : items) {
        records.insert_or_assign(item->identifier() ? item->identifier()->string() : std::string(),
                                 recordOf(*item));
    }
    return records;
}

std::string hiddenOf(const Record& item) {
    return item["hidden"] == true ? "hidden" : "visible";
}

std::string electionOf(const Record& item) {
    return textOf(item, "userElectionText");
}

std::string placeOf(const Record& item) {
    return textOf(item, "identifier") + "  " + textOf(item, "name") + "  " + textOf(item, "path");
}

std::string loginLineOf(const Record& item) {
    return "login item  " + placeOf(item) + "  " + hiddenOf(item);
}

std::string backgroundLineOf(const Record& item) {
    return "background item  " + placeOf(item) + "  " + electionOf(item);
}

constexpr Wording kLoginItem{"loginItem", &loginLineOf, &hiddenOf};
constexpr Wording kBackgroundItem{"backgroundItem", &backgroundLineOf, &electionOf};

/// One of the two lists. Used on the main queue.
struct Watched {
    std::shared_ptr<WatchOutput> output;
    const Wording& wording;
    Known known;

    template <class Items>
    void compare(const Items& items) {
        const Known before = std::exchange(known, recordsOf(items));
        tellDifferences(*output, wording, before, known);
    }
};

struct LoginDelegate final : Watched, KSWLoginItemControllerDelegate {
    explicit LoginDelegate(Watched watched) : Watched(std::move(watched)) {}
    void loginItemControllerDidChangeItems(const std::shared_ptr<KSWLoginItemController>& controller) override {
        compare(controller->items());
    }
};

struct BackgroundDelegate final : Watched, KSWBackgroundItemControllerDelegate {
    explicit BackgroundDelegate(Watched watched) : Watched(std::move(watched)) {}
    void backgroundItemControllerDidChangeItems(
        const std::shared_ptr<KSWBackgroundItemController>& controller) override {
        compare(controller->items());
    }
};

}  // namespace

struct AgentWatcher::State {
    State(const std::shared_ptr<WatchOutput>& output, const LoginItems& logins, const BackgroundItems& items)
        : loginDelegate(std::make_shared<LoginDelegate>(Watched{output, kLoginItem, recordsOf(logins)})),
          backgroundDelegate(
              std::make_shared<BackgroundDelegate>(Watched{output, kBackgroundItem, recordsOf(items)})) {}

    std::shared_ptr<LoginDelegate> loginDelegate;
    std::shared_ptr<BackgroundDelegate> backgroundDelegate;
    std::shared_ptr<KSWLoginItemController> loginItems =
        KSWLoginItemController::initWithTypeMask(KSWItemTypeAll, loginDelegate);
    std::shared_ptr<KSWBackgroundItemController> backgroundItems =
        KSWBackgroundItemController::initWithDelegate(backgroundDelegate);
};

std::unique_ptr<AgentWatcher> AgentWatcher::create(const std::shared_ptr<WatchOutput>& output) {
    const auto logins = askForLoginItems();
    if (!std::holds_alternative<LoginItems>(logins)) {
        return nullptr;
    }
    const auto items = askForBackgroundItems();
    if (!std::holds_alternative<BackgroundItems>(items)) {
        return nullptr;
    }
    return std::unique_ptr<AgentWatcher>(new AgentWatcher(
        std::make_unique<State>(output, std::get<LoginItems>(logins), std::get<BackgroundItems>(items))));
}

AgentWatcher::AgentWatcher(std::unique_ptr<State> state) : state_(std::move(state)) {}

AgentWatcher::~AgentWatcher() = default;

}  // namespace tools::kswctl
