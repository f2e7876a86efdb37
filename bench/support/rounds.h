// rounds.h: measures several things in turns, so that what disturbs the machine disturbs them alike.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
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

}  // namespace ksw::bench
