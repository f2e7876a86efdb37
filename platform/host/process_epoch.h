// process_epoch.h: tells a process from the one that it was forked from, at the price of a load.
#pragma once

#include <cstdint>

namespace ksw::host {

/// A number that differs in a process and in every process that it was forked from, directly or not. Any thread.
std::uint64_t processEpoch();

}  // namespace ksw::host
