#include "tests/servers/kestrelwoodd/daemon_inside.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "servers/kestrelwoodd/open_registry.h"

namespace ksw::daemon::test {

using namespace servers;

Caller anOwner() {
    return geteuid() == 0 ? Caller{4501, 4501} : Caller{geteuid(), getegid()};
}

Caller anOther() {
    return {anOwner().uid + 1, anOwner().gid + 1};
}

Dictionary jobNamed(std::string_view label) {
    return {{std::string(KSWConfigLabel), Value(label)},
            {std::string(KSWConfigExecutablePath), Value("/opt/tool")}};
}

URL jobURL(std::string_view label) {
    return URL::fileURL("/nowhere/" + std::string(label) + ".plist");
}

DaemonInside::DaemonInside(const host::Clock& clock) : clock_(clock) {
    // What the daemon reads for an ordinary user it reads with his rights, also when root runs the test.
    EXPECT_EQ(chmod(folder_.path().c_str(), 0755), 0);
    restart();
}

void DaemonInside::restart() {
    restartWithPages(kStorePagesMax);
}

void DaemonInside::restartWithPages(std::int64_t pagesMax) {
    close();
    Result<OpenedRegistry> opened = openRegistry(path(), pagesMax);
    ASSERT_TRUE(opened.ok()) << opened.error().description();
    registry_ = std::move(opened->registry);
    operations_ = std::make_unique<Operations>(*registry_, clock_);
    housekeeping_ = std::make_unique<Housekeeping>(*registry_, *operations_, announce_,
                                                   [this](const AuditToken&) { return isAuthorised_.load(); });
}

void DaemonInside::close() {
    housekeeping_.reset();
    operations_.reset();
    registry_.reset();
}

void DaemonInside::damage(const std::string& statements) {
    close();
    {
        Result<Database> database = Database::open(path());
        ASSERT_TRUE(database.ok());
        const Status done = database->execute(statements);
        ASSERT_TRUE(done.ok()) << done.error().description();
    }
    restart();
}

void DaemonInside::put(const std::vector<ItemRow>& rows) {
    close();
    {
        Result<Store> store = Store::open(path());
        ASSERT_TRUE(store.ok());
        Change change;
        for (const ItemRow& row : rows) {
            if (change.users.empty() || change.users.back().uid != row.uid) {
                change.users.push_back({row.uid, "test-" + std::to_string(row.uid)});
            }
        }
        change.put = rows;
        const Status done = store->apply(change);
        ASSERT_TRUE(done.ok()) << done.error().description();
    }
    restart();
}

void DaemonInside::allow(Uid uid, std::string_view identifier) {
    const ItemPointer item = copyOfRecord(*record(uid, identifier));
    item->setAllowed(true);
    Result<ItemRow> row = rowOf(uid, *item);
    ASSERT_TRUE(row.ok());
    row->container = record(uid, identifier)->container()->uuid();
    put({*row});
}

URL DaemonInside::writeJob(std::string_view name, std::string_view label) {
    const std::string path =
        folder_.writeFile(name, "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>Label</key><string>" +
                                    std::string(label) + "</string></dict></plist>");
    EXPECT_EQ(chmod(path.c_str(), 0644), 0);
    return URL::fileURL(path);
}

Answer DaemonInside::ask(Operations::Operation operation, const Caller& caller, KSWItemType type,
                         const std::optional<URL>& bundle, const std::optional<URL>& url,
                         const std::optional<Dictionary>& configuration, Uid uid) {
    return (operations_.get()->*operation)({Owner::Bundle, kNoToken, bundle, type, url, configuration, uid},
                                           caller);
}

Answer DaemonInside::askOf(Operations::Operation operation, const Caller& caller, KSWItemType type,
                           std::string_view label, Uid uid) {
    return ask(operation, caller, type, kNoURL, jobURL(label), jobNamed(label), uid);
}

Answer DaemonInside::enterAgent(const Caller& caller, std::string_view label, Uid uid) {
    return askOf(&Operations::enter, caller, kLegacyAgent, label, uid);
}

Answer DaemonInside::enterDaemon(const Caller& caller, std::string_view label) {
    return askOf(&Operations::enter, caller, kLegacyDaemon, label, caller.uid);
}

}  // namespace ksw::daemon::test
