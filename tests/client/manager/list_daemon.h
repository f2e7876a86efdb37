// list_daemon.h: a daemon that answers queries with a list that a test can change at any time.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWList.h>

#include "client/values/list_record.h"
#include "platform/archive/keyed_archive.h"
#include "tests/client/manager/scripted_daemon.h"

namespace ksw::test {

using Items = KSWList::Items;
using Names = std::vector<std::string>;

inline std::shared_ptr<KSWItem> itemNamed(const std::string& identifier, KSWItemType type = KSWItemTypeAgent) {
    return KSWItem::itemWithType(type, identifier);
}

inline Names names(const Items& items) {
    Names identifiers;
    for (const auto& item : items) {
        identifiers.push_back(item->identifier().value());
    }
    return identifiers;
}

/// A list as a daemon sends it.
inline Data archiveOfList(Items items, Uid uid = 501, std::int64_t type = 8) {
    const ListRecord record{uid, type, {std::move(items), true}};
    auto archive = archive::archive(record, archive::Coder::Ordinary);
    EXPECT_TRUE(archive.ok());
    return *std::move(archive);
}

/// What the threads of a daemon and of a test both look at.
template <class T>
class Seen {
public:
    void add(T one) {
        const std::lock_guard lock(mutex_);
        all_.push_back(std::move(one));
    }
    std::vector<T> all() {
        const std::lock_guard lock(mutex_);
        return all_;
    }
    T only() {
        std::vector<T> seen = all();
        EXPECT_EQ(seen.size(), 1U);
        return seen.empty() ? T() : seen.front();
    }

private:
    std::mutex mutex_;
    std::vector<T> all_;
};

/// Type and user of a query.
using Query = std::pair<std::int64_t, Uid>;
/// What was done, and for whom.
using Change = std::pair<std::string, Uid>;

class ListDaemon {
public:
    using Responder = ipc::Responder<std::optional<Data>, std::optional<Error>>;

    ListDaemon() {
        daemon_.on(methods::kGetItemsMatching,
                   [this](const ipc::RequestContext&, Responder responder, std::int64_t type, Uid uid) {
                       queries_.add({type, uid});
                       std::unique_lock lock(mutex_);
                       const auto archive = archive_;
                       const auto error = error_;
                       const auto meanwhile = std::exchange(meanwhile_, nullptr);
                       lock.unlock();
                       if (meanwhile) {
                           meanwhile();
                       }
                       responder.answer(archive, error);
                   });
        daemon_.on(methods::kAddItem, [this](const ipc::RequestContext&, ipc::Responder<std::int64_t> responder,
                                             const std::shared_ptr<KSWItem>&, Uid uid) {
            changes_.add({"add", uid});
            responder.answer(KSWErrorNone);
        });
        daemon_.on(methods::kRemoveItemWithUUID,
                   [this](const ipc::RequestContext&, ipc::Responder<std::optional<Error>> responder,
                          std::optional<UUID>, Uid uid) {
                       changes_.add({"remove", uid});
                       responder.answer(std::nullopt);
                   });
        daemon_.on(methods::kUpdateItems, [this](const ipc::RequestContext&, ipc::Responder<std::int64_t> responder,
                                                 const std::optional<Data>&, Uid uid) {
            changes_.add({"update", uid});
            responder.answer(KSWErrorRecordUpdated);
        });
    }

    /// The list that every query is answered with from now on.
    void has(Items items, Uid uid = 501, std::int64_t type = 8) {
        says(archiveOfList(std::move(items), uid, type));
    }
    void says(std::optional<Data> archive, std::optional<Error> error = std::nullopt) {
        const std::lock_guard lock(mutex_);
        archive_ = std::move(archive);
        error_ = std::move(error);
    }
    /// Runs when the next query has been looked up, before it is answered.
    void meanwhile(std::function<void()> act) {
        const std::lock_guard lock(mutex_);
        meanwhile_ = std::move(act);
    }
    void start() { daemon_.start(); }
    void stop() { daemon_.stop(); }

    std::vector<Query> queries() { return queries_.all(); }
    std::vector<Change> changes() { return changes_.all(); }

private:
    Seen<Query> queries_;
    Seen<Change> changes_;
    std::mutex mutex_;  // guards the three below
    std::optional<Data> archive_;
    std::optional<Error> error_;
    std::function<void()> meanwhile_;
    ScriptedDaemon daemon_;
};

/// A manager with a daemon that has lists.
class ListTest : public ClientTest {
protected:
    ListTest() {
        // The process's own manager may have been left with the connection of an earlier test.
        KSWManager::shared().UIDs();
        log_.clear();
        daemon_.has({itemNamed("8.a")});
        daemon_.start();
    }

    std::vector<std::string> debugLines() const { return log_.at(host::LogLevel::Debug); }
    std::string place(const void* pointer) const { return format("%p", pointer); }

    ListDaemon daemon_;
    std::shared_ptr<KSWManager> manager_ = KSWManager::initWithMode(0);
    std::optional<Error> error_;
};

/// Keeps what it is told.
class Witness : public KSWListObserver {
public:
    void listDidChange(const std::shared_ptr<KSWList>& list) override { told_.add(names(list->items())); }

    /// The items of the list each time that it was told.
    std::vector<Names> told() { return told_.all(); }

private:
    Seen<Names> told_;
};

}  // namespace ksw::test
