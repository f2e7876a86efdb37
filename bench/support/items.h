// items.h: items with every field filled, as the benchmarks archive, copy and fetch them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <kestrelwood/KSWItem.h>

#include "servers/kestrelwoodd/store.h"

namespace ksw::bench {

using Items = std::vector<std::shared_ptr<KSWItem>>;

/// The item of this number, of a type with one base kind; no two numbers have the same identifier.
std::shared_ptr<KSWItem> makeItem(int number, KSWItemType type);

Items copies(const Items& items);

/// Records agents of these numbers, from 0 on, under the unknown developer for a user, in the store of the host
/// root that is set: before the daemon is started.
void recordAgents(int count, Uid uid);

/// A new store at this path with one agent, whose row it hands out. For what a commit alone takes.
daemon::Store storeWithAgent(const std::string& path, daemon::ItemRow& row);

}  // namespace ksw::bench
