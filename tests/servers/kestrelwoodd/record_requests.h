// record_requests.h: the requests about records, sent to the daemon's inside as its services would send them.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "client/values/list_record.h"
#include "tests/servers/kestrelwoodd/daemon_inside.h"

namespace ksw::daemon::test {

/// An agent as a client would hand it over, with every field that a client may say.
ItemPointer anAgent(std::string_view label);
/// A copy with everything but its relatives: what a client has of a record.
ItemPointer copyOf(const ItemPointer& item);

/// The rule of the method with this number.
Rule ruleOf(int number);

/// A list as it arrives at a client; each item owns all of it.
struct ReceivedList {
    Uid uid = 0;
    std::int64_t type = 0;
    std::vector<ItemPointer> items;

    /// Their identifiers in their order.
    std::vector<std::string> identifiers() const;
};
/// The list in an answer or reply; fails the test when there is none that can be read.
ReceivedList receivedList(const std::optional<Data>& archive);
/// The archive of a set of items, as a client sends it.
Data archiveOf(const std::vector<ItemPointer>& items);

/// Asks by the rules of the table of served methods.
class RecordRequests {
public:
    explicit RecordRequests(DaemonInside& daemon) : daemon_(daemon) {}

    Answer lookUp(const Caller& caller, const std::optional<std::string>& identifier, Uid uid);
    Answer lookUp(const Caller& caller, const std::optional<UUID>& uuid, Uid uid);
    Answer ask(const Caller& caller, std::int64_t mask, Uid uid);
    ReceivedList list(const Caller& caller, std::int64_t mask, Uid uid);
    Answer add(const Caller& caller, const ItemPointer& item, Uid uid);
    Answer update(const Caller& caller, const ItemPointer& item, Uid uid);
    Answer updateSet(const Caller& caller, const std::optional<Data>& archive, Uid uid);
    Answer updateSet(const Caller& caller, const std::vector<ItemPointer>& items, Uid uid) {
        return updateSet(caller, archiveOf(items), uid);
    }
    Answer remove(const Caller& caller, const std::optional<std::string>& identifier, Uid uid);
    Answer remove(const Caller& caller, const std::optional<UUID>& uuid, Uid uid);

private:
    DaemonInside& daemon_;
};

/// A daemon, its requests, and an ordinary user.
class WithRecords : public testing::Test {
protected:
    DaemonInside daemon_;
    RecordRequests requests_{daemon_};
    const Caller owner_ = anOwner();
    const Caller other_ = anOther();
};

}  // namespace ksw::daemon::test
