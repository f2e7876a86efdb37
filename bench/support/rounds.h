// rounds.h: measures several things in turns, so that what disturbs the machine disturbs them alike.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <string_view>
#include <vector>

namespace ksw::bench {

/// Runs each body `rounds` times in turns and answers, for each, the nanoseconds of its middle round.
inline std::vector<double> middleRounds(int rounds, const std::vector<std::function<void()>>& bodies) {
    std::vector<std::vector<double>> times(bodies.size());
    for (int round = 0; round < rounds; ++round) {
        for (std::size_t index = 0; index < bodies.size(); ++index) {
            const auto start = std::chrono::steady_clock::now();
            bodies[index]();
            const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - start;
            times[index].push_back(took.count());
        }
    }
    std::vector<double> middles;
    for (std::vector<double>& list : times) {
        std::nth_element(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(list.size() / 2), list.end());
        middles.push_back(list[list.size() / 2]);
    }
    return middles;
}

/// The program's exit status: 1 when a target is missed and the program was called with "--strict". Without it a
/// busy machine fails nobody's tests.
inline int exitStatus(bool targetsHold, int count, char** words) {
    const bool isStrict = count > 1 && std::string_view(words[1]) == "--strict";
    return targetsHold || !isStrict ? 0 : 1;
}

}  // namespace ksw::bench
