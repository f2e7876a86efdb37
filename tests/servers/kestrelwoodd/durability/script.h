// script.h: changes that a test carries out in a fixed order, and how the records stand after each.
#pragma once

#include <string>
#include <vector>

#include "servers/kestrelwoodd/registry.h"

namespace ksw::daemon::test {

/// The value of TMPDIR for tests that make hundreds of stores: a folder in memory if there is one.
std::string placeForManyStores();

/// From here on the log writes nothing to standard error: every failure that these tests cause is a line there.
void silenceLog();

/// One change.
struct Step {
    Uid uid = 0;
    std::string identifier;
    bool removes = false;
    int version = 0;  ///< Else the item is entered with facts that say this; it may be there with others.
};

/// So many changes: items of two users and of the system are entered, entered again with other facts, and removed.
std::vector<Step> script(std::size_t steps);

/// The code: 0 and -93 when something has changed.
std::int64_t perform(Registry& registry, const Step& step);

/// All that the records say, families and generations included, and no UUID.
std::string snapshot(const Registry& registry);

/// "ok" when the database says of itself, its journal included, that it is whole; it is left as it is.
std::string quickCheck(const std::string& path);

/// How the records stand before the first step, and after each.
std::vector<std::string> snapshotsOf(const std::vector<Step>& steps);

}  // namespace ksw::daemon::test
