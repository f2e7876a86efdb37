// changing_client.h: a client of the daemon that changes items of its own in every way, and knows what they must
// be.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>

#include <kestrelwood/KSWManager.h>

#include "servers/kestrelwoodd/record_index.h"

namespace ksw::daemon::test {

/// Nobody else changes its items. One thread at a time.
class ChangingClient {
public:
    /// The seed and the client's number choose what it does.
    ChangingClient(unsigned seed, unsigned number);

    /// Registers, adds, updates in sets, unregisters and removes, one request after the other, until one has no
    /// answer. Calls `acknowledged` after each that has. Fails the test when an answer is not the one due.
    void change(const std::function<void()>& acknowledged);

    /// Compares with the records as they lie on the disk: all that was acknowledged is there, and the request
    /// without answer is wholly done or wholly not. Takes them for acknowledged then.
    void compare(const RecordIndex& records);

    /// Compares with what the daemon answers.
    void compareAnswers() const;

private:
    /// Records by label; null: there is none.
    using Records = std::map<std::string, ItemPointer>;
    /// The code of an answer; absent when there was none.
    using Code = std::optional<std::int64_t>;

    bool changeOne();
    /// False when the request had no answer.
    bool carryOut(Records changes, std::int64_t expected, const std::function<Code()>& request);
    bool enter(const std::string& label);
    bool add(const std::string& label);
    bool updateWithOthers(const std::string& label);
    bool unregister(const std::string& label);
    bool remove(const std::string& label);

    /// A path that no item has had before.
    std::string nextPath() { return "/opt/version-" + std::to_string(++version_); }
    KSWDisposition anyDisposition();

    std::mt19937 random_;
    int version_ = 0;
    Records items_;     // as acknowledged last
    Records inFlight_;  // what the request without answer makes of those that it concerns
    std::shared_ptr<KSWManager> manager_ = KSWManager::initWithMode(0);
};

}  // namespace ksw::daemon::test
