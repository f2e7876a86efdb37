// kswctl: asks the management daemon on behalf of a person or a script.
#include <algorithm>
#include <iterator>
#include <variant>

#include "tools/kswctl/options.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

struct Action {
    Verb verb;
    ExitStatus (*run)(const Options& options);
};

constexpr Action kActions[] = {
    {Verb::Users, &listUsers},
    {Verb::Register, &registerJob},
    {Verb::Unregister, &unregisterJob},
    {Verb::Import, &importJobs},
    {Verb::MayLoad, &askWhetherJobMayLoad},
    {Verb::Status, &showStatus},
    {Verb::List, &listItems},
    {Verb::Show, &showItem},
    {Verb::Add, &addItem},
    {Verb::Remove, &removeItem},
    {Verb::Enable, &changeItem},
    {Verb::Disable, &changeItem},
    {Verb::Allow, &changeItem},
    {Verb::Disallow, &changeItem},
    {Verb::Hide, &changeItem},
    {Verb::Unhide, &changeItem},
    {Verb::Watch, &watchItems},
    {Verb::Facts, &showFacts},
    {Verb::Apps, &listApplications},
    {Verb::Inspect, &inspectJob},
    {Verb::Identify, &identifyFile},
    {Verb::BookmarkMake, &makeBookmark},
    {Verb::BookmarkShow, &showBookmark},
    {Verb::BookmarkResolve, &resolveBookmark},
    {Verb::BookmarkMatch, &matchBookmarks},
    {Verb::LoginItemsList, &listLoginItems},
    {Verb::LoginItemsAdd, &addLoginItem},
    {Verb::LoginItemsRemove, &removeLoginItem},
    {Verb::BackgroundItemsList, &listBackgroundItems},
    {Verb::BackgroundItemsAllow, &electBackgroundItem},
    {Verb::BackgroundItemsDisallow, &electBackgroundItem},
    {Verb::Doctor, &examineHost},
    {Verb::SettingsShow, &showSettings},
    {Verb::SettingsSet, &setSetting},
    {Verb::RosterList, &listRoster},
    {Verb::RosterAdd, &addToRoster},
    {Verb::RosterUpdate, &updateRoster},
    {Verb::RosterRemove, &removeFromRoster},
    {Verb::ManagedShow, &showPayload},
    {Verb::ManagedSet, &setPayload},
    {Verb::ManagedRemove, &removePayload},
    {Verb::ManagedJobs, &manageJobs},
    {Verb::SubsystemHave, &askWhetherSwitchIsSet},
    {Verb::SubsystemGet, &showSwitch},
    {Verb::SubsystemSet, &setSwitch},
    {Verb::SubsystemReset, &resetSwitch},
    {Verb::CollectGarbage, &collectGarbage},
    {Verb::Dump, &dumpDatabase},
    {Verb::Erase, &eraseDatabase},
    {Verb::NotificationsShow, &showNotifications},
    {Verb::NotificationsAlways, &setNotifications},
};

ExitStatus run(const Options& options) {
    const auto* action = std::find_if(std::begin(kActions), std::end(kActions),
                                      [&](const Action& each) { return each.verb == options.verb; });
    return action != std::end(kActions) ? action->run(options) : ExitStatus::Failed;
}

}  // namespace
}  // namespace tools::kswctl

int main(int argc, char** argv) {
    const auto parsed = tools::kswctl::parseOptions(argc, argv);
    const auto* options = std::get_if<tools::kswctl::Options>(&parsed);
    return static_cast<int>(options != nullptr ? tools::kswctl::run(*options)
                                               : std::get<tools::ExitStatus>(parsed));
}
