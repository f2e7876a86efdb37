// generation.h: how the daemon counts the changes of a record.
#pragma once

#include <cstdint>

namespace ksw::client {

/// What a record's generation is after a change that the daemon has acknowledged. The lowest follows the highest.
constexpr std::int64_t nextGeneration(std::int64_t generation) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(generation) + 1);
}

}  // namespace ksw::client
