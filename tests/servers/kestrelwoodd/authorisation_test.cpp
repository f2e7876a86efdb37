#include "servers/kestrelwoodd/authorisation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "servers/kestrelwoodd/served_methods.h"
#include "tests/servers/kestrelwoodd/record_requests.h"

namespace ksw::daemon::test {
namespace {

/// A request: who asks, of which kind of item, in whose name, and whether its rule lets it pass.
struct Case {
    const char* name;
    Caller caller;
    KSWItemType type;
    Uid uid;
    bool mayAsk;
    bool mayChange;
};

std::vector<Case> cases() {
    const Caller owner = anOwner();
    const Caller other = anOther();
    return {
        {"root for a user", kRoot, kLegacyAgent, owner.uid, true, true},
        {"root for itself", kRoot, kLegacyAgent, 0, true, true},
        {"root for every user", kRoot, kLegacyAgent, kEveryUser, true, true},
        {"root, a daemon", kRoot, kLegacyDaemon, owner.uid, true, true},
        {"the host root's owner for another", {other.uid, other.gid, true}, kLegacyAgent, owner.uid, true, true},
        {"the host root's owner, a daemon", {other.uid, other.gid, true}, kLegacyDaemon, owner.uid, true, true},
        {"a user for itself", owner, kLegacyAgent, owner.uid, true, true},
        {"a user for itself, a user item", owner, KSWItemTypeUserItem, owner.uid, true, true},
        {"a user, a daemon", owner, kLegacyDaemon, owner.uid, true, false},
        {"root, a smart card", kRoot, KSWItemTypeSmartCard, owner.uid, true, true},
        {"a user, a smart card", owner, KSWItemTypeSmartCard, owner.uid, true, false},
        {"a user, a daemon of an application", owner, KSWItemTypeDaemon, owner.uid, true, false},
        {"a user for another", other, kLegacyAgent, owner.uid, false, false},
        {"a user for root", owner, kLegacyAgent, 0, false, false},
        {"a user for every user", owner, kLegacyAgent, kEveryUser, false, false},
        {"a user for no user", owner, kLegacyAgent, kNoUser, false, false},
        {"a user, a daemon for every user", owner, kLegacyDaemon, kEveryUser, false, false},
        {"a user whose type says both kinds", owner, kLegacyAgent | KSWItemTypeDaemon, owner.uid, true, false},
        {"the uid of every user", {kEveryUser, 0}, kLegacyAgent, kEveryUser, false, false},
        {"the uid of nobody", {kNoUser, 0}, kLegacyAgent, kNoUser, false, false},
    };
}

bool isExpected(Rule rule, const Case& request) {
    switch (rule) {
        case Rule::Ask:
        case Rule::Tell:
            return request.mayAsk;
        case Rule::Change:
            return request.mayChange;
        case Rule::List:
            return true;
        case Rule::Manage:
        case Rule::Maintain:
            return request.caller.isAdministrator();
    }
    return false;
}

/// The same of a method that names no user: it is about the caller.
bool isExpectedOfOneself(Rule rule, const Case& request) {
    const bool isSomebody = request.caller.uid != kEveryUser && request.caller.uid != kNoUser;
    return rule == Rule::Ask || rule == Rule::Change ? request.caller.isAdministrator() || isSomebody
                                                     : isExpected(rule, request);
}

void expectVerdict(DaemonInside& daemon, const Answer& answer, bool isLetThrough) {
    EXPECT_EQ(answer.code != KSWErrorPermissionDenied, isLetThrough) << answer.code;
    if (!isLetThrough) {
        EXPECT_EQ(answer.item, nullptr);
        EXPECT_EQ(answer.list, nullptr);
        EXPECT_EQ(answer.users, std::nullopt);
        EXPECT_EQ(answer.disposition, 0U);
        EXPECT_TRUE(answer.changes.empty());
        EXPECT_TRUE(daemon.registry().records().users().empty());
    }
}

// Each sends a case to the row's method, as its handler would.

template <class Method>
void check(DaemonInside& daemon, const ServedMethod<Method, Operations::Operation>& row, const Case& request) {
    const std::optional<URL> url = jobURL("my.job");
    const std::optional<Dictionary> configuration = jobNamed("my.job");
    const Subject subject{Owner::OneOfBoth, kNoToken, kNoURL, request.type, url, configuration, request.uid};
    expectVerdict(daemon, daemon.operations().perform(row.operation, row.rule, subject, request.caller),
                  isExpected(row.rule, request));
}

// What a request about a record names it by. Only an item says of what type it is.
void name(std::optional<std::string>& thing, const Case& /*request*/) {
    thing = "8.my.job";
}
void name(std::optional<UUID>& thing, const Case& /*request*/) {
    thing = UUID::random();
}
void name(std::int64_t& thing, const Case& /*request*/) {
    thing = KSWItemTypeAll;
}
void name(std::optional<Data>& thing, const Case& /*request*/) {
    thing = archiveOf({anAgent("my.job")});
}
void name(ItemPointer& thing, const Case& request) {
    thing = KSWItem::initWithType(request.type, "8.my.job");
}

template <class Method, class Thing>
void check(DaemonInside& daemon,
           const ServedMethod<Method, Answer (Operations::*)(const RecordRequest<Thing>&)>& row,
           const Case& request) {
    const bool saysItsType = std::is_same_v<Thing, ItemPointer>;
    if (!saysItsType && request.type != kLegacyAgent) {
        return;
    }
    Thing thing{};
    name(thing, request);
    expectVerdict(daemon,
                  daemon.operations().perform(row.operation, row.rule, {thing, request.uid, request.caller}),
                  isExpected(row.rule, request));
}

// What a request about something else says.
void name(SettingsPointer& thing, const Case& /*request*/) {
    thing = KSWUserSettings::init();
}
void name(Uid& thing, const Case& request) {
    thing = request.uid;
}
void name(bool& thing, const Case& request) {
    // What a legacy item is marked with is the administrator's to say.
    thing = request.caller.isAdministrator();
}
void name(double& thing, const Case& /*request*/) {
    thing = 3'600;
}
void name(std::optional<URL>& thing, const Case& /*request*/) {
    thing = URL::fileURL("/nowhere/file");
}
void name(std::optional<Dictionary>& thing, const Case& /*request*/) {
    thing = Dictionary{{"Key", Value(1)}};
}

template <class Method, class... P>
void check(DaemonInside& daemon,
           const ServedMethod<Method, Report (Housekeeping::*)(const Caller&, const P&...)>& row,
           const Case& request) {
    if (request.type != kLegacyAgent) {
        return;
    }
    std::tuple<P...> things{};
    std::apply([&](auto&... thing) { (name(thing, request), ...); }, things);
    const Report report = std::apply(
        [&](const auto&... thing) {
            return daemon.housekeeping().perform(row.operation, row.rule, request.caller, thing...);
        },
        things);
    const bool namesAUser = (std::is_same_v<P, Uid> || ...);
    const bool isLetThrough = namesAUser ? isExpected(row.rule, request) : isExpectedOfOneself(row.rule, request);
    EXPECT_EQ(report.code != KSWErrorPermissionDenied, isLetThrough) << report.code;
    if (!isLetThrough) {
        EXPECT_TRUE(daemon.registry().records().users().empty());
        EXPECT_FALSE(report.flag || report.settings || report.dictionary || report.text || report.data ||
                     report.item);
        EXPECT_TRUE(report.changes.empty());
    }
}

template <class Method>
void check(DaemonInside& daemon, const ServedMethod<Method, Operations::PlainOperation>& row, const Case& request) {
    expectVerdict(daemon, daemon.operations().perform(row.operation, row.rule, request.caller),
                  isExpected(row.rule, request));
}

/// Sends every case to every method; first those that are to be refused, which must leave no record.
template <class Table>
void checkAll(const Table& table) {
    const auto checkRow = [](const auto& row) {
        DaemonInside daemon;
        for (const bool isLetThrough : {false, true}) {
            for (const Case& request : cases()) {
                SCOPED_TRACE(std::string(row.method.selector) + ": " + request.name);
                if (isExpected(row.rule, request) == isLetThrough) {
                    check(daemon, row, request);
                }
            }
        }
    };
    std::apply([&](const auto&... row) { (checkRow(row), ...); }, table);
}

TEST(AServedMethod, OfTheManagerLetsThoseThroughWhomItsRuleAllows) {
    checkAll(kManagerMethods);
}

TEST(AServedMethod, OfTheHouseholdLetsThoseThroughWhomItsRuleAllows) {
    checkAll(kHouseholdMethods);
}

TEST(AServedMethod, OfTheRosterLetsThoseThroughWhomItsRuleAllows) {
    checkAll(kRosterMethods);
}

TEST(AServedMethod, OfTheRegistrarLetsThoseThroughWhomItsRuleAllows) {
    checkAll(kRegistrarMethods);
}

template <class Table>
std::set<int> numbersOf(const Table& table) {
    return std::apply([](const auto&... row) { return std::set<int>{row.method.number...}; }, table);
}

/// 1 to the number of methods in a contract.
std::set<int> allOf(const ipc::ServiceInterface& interface) {
    std::set<int> numbers;
    while (numbers.size() < interface.methods.size()) {
        numbers.insert(static_cast<int>(numbers.size()) + 1);
    }
    return numbers;
}

TEST(TheServedMethods, AreAllThatTheContractsHave) {
    std::set<int> managers = numbersOf(kManagerMethods);
    std::set<int> household = numbersOf(kHouseholdMethods);
    EXPECT_EQ(managers.size() + household.size(), 40U);
    managers.merge(household);
    EXPECT_TRUE(household.empty());
    EXPECT_EQ(managers, allOf(GetManagerServiceInterface()));
    EXPECT_EQ(numbersOf(kRosterMethods), allOf(protocol::roster::serviceInterface()));
    EXPECT_EQ(numbersOf(kRegistrarMethods), allOf(protocol::registrar::serviceInterface()));
}

template <class Method>
void ask(DaemonInside& daemon, const ServedMethod<Method, Operations::Operation>& row) {
    for (const char* label : {"my.job", "another.job"}) {
        daemon.askOf(row.operation, kRoot, kLegacyAgent, label, 0);
    }
}

template <class Method, class Thing>
void ask(DaemonInside& daemon,
         const ServedMethod<Method, Answer (Operations::*)(const RecordRequest<Thing>&)>& row) {
    Thing thing{};
    name(thing, cases().front());
    daemon.operations().perform(row.operation, row.rule, {thing, 0, kRoot});
}

template <class Method>
void ask(DaemonInside& daemon, const ServedMethod<Method, Operations::PlainOperation>& row) {
    daemon.operations().perform(row.operation, row.rule, kRoot);
}

template <class Method, class Operation>
void changesNothing(const ServedMethod<Method, Operation>& row) {
    if (row.rule == Rule::Change) {
        return;
    }
    SCOPED_TRACE(row.method.selector);
    DaemonInside daemon;
    daemon.enterAgent(kRoot, "my.job", 0);
    const std::string before = daemon.record(0, "8.my.job")->dumpVerboseDescription();
    ask(daemon, row);
    EXPECT_EQ(daemon.record(0, "8.my.job")->dumpVerboseDescription(), before);
    EXPECT_EQ(daemon.record(0, "8.another.job"), nullptr);
}

TEST(AServedMethod, ThatMayOnlyAskChangesNothing) {
    std::apply([](const auto&... row) { (changesNothing(row), ...); }, kManagerMethods);
}

TEST(TheListOfUsers, ShowsRootEverybody) {
    DaemonInside daemon;
    daemon.enterAgent(kRoot, "a", 4501);
    daemon.enterAgent(kRoot, "b", 4502);
    daemon.enterDaemon(kRoot, "c");
    EXPECT_EQ(daemon.operations().users(kRoot).size(), 3U);
}

TEST(TheListOfUsers, ShowsAUserItselfAndTheSystemOnly) {
    DaemonInside daemon;
    daemon.enterAgent(kRoot, "a", anOwner().uid);
    daemon.enterAgent(kRoot, "b", anOther().uid);
    daemon.enterDaemon(kRoot, "c");
    const Dictionary users = daemon.operations().users(anOwner());
    std::set<std::int64_t> uids;
    for (const auto& [name, uid] : users) {
        uids.insert(*uid.as<std::int64_t>());
    }
    EXPECT_EQ(uids, (std::set<std::int64_t>{std::int64_t{anOwner().uid}, std::int64_t{kEveryUser}}));
}

}  // namespace
}  // namespace ksw::daemon::test
