#include "servers/kestrelwoodd/authorisation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "servers/kestrelwoodd/served_methods.h"
#include "tests/servers/kestrelwoodd/daemon_inside.h"

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
    return rule == Rule::Ask ? request.mayAsk : rule == Rule::Change && request.mayChange;
}

/// Sends each case to the row's method, as its handler would.
template <class Method>
void check(const ServedMethod<Method>& row) {
    for (const Case& request : cases()) {
        SCOPED_TRACE(std::string(row.method.selector) + ": " + request.name);
        DaemonInside daemon;
        const std::optional<URL> url = jobURL("my.job");
        const std::optional<Dictionary> configuration = jobNamed("my.job");
        const Subject subject{Owner::OneOfBoth, kNoToken, kNoURL, request.type, url, configuration, request.uid};
        const Answer answer = daemon.operations().perform(row.operation, row.rule, subject, request.caller);
        EXPECT_EQ(answer.code != KSWErrorPermissionDenied, isExpected(row.rule, request)) << answer.code;
        if (!isExpected(row.rule, request)) {
            EXPECT_EQ(answer.item, nullptr);
            EXPECT_EQ(answer.disposition, 0U);
            EXPECT_TRUE(daemon.registry().records().users().empty());
        }
    }
}

TEST(AServedMethod, OfTheManagerLetsThoseThroughWhomItsRuleAllows) {
    std::apply([](const auto&... row) { (check(row), ...); }, kManagerMethods);
}

TEST(AServedMethod, OfTheRegistrarLetsThoseThroughWhomItsRuleAllows) {
    std::apply([](const auto&... row) { (check(row), ...); }, kRegistrarMethods);
}

template <class Table>
std::set<int> numbersOf(const Table& table) {
    return std::apply([](const auto&... row) { return std::set<int>{row.method.number...}; }, table);
}

TEST(TheServedMethods, AreThoseThatRegisterAndThatAskWhatMayLaunch) {
    EXPECT_EQ(numbersOf(kManagerMethods), (std::set<int>{5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 20}));
    EXPECT_EQ(numbersOf(kRegistrarMethods), (std::set<int>{1, 2, 3}));
}

template <class Method>
void changesNothing(const ServedMethod<Method>& row) {
    if (row.rule != Rule::Ask) {
        return;
    }
    SCOPED_TRACE(row.method.selector);
    DaemonInside daemon;
    daemon.enterAgent(kRoot, "my.job", 0);
    const std::string before = daemon.record(0, "8.my.job")->dumpVerboseDescription();
    for (const char* label : {"my.job", "another.job"}) {
        daemon.askOf(row.operation, kRoot, kLegacyAgent, label, 0);
    }
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
