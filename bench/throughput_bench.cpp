// throughput_bench.cpp: eight threads that share one connection, beside eight threads with a bare socket each. Ends
// with 1 when the shared connection carries too little.
#include <cstdio>
#include <functional>
#include <list>
#include <thread>
#include <vector>

#include "bench/support/question.h"
#include "bench/support/raw_sockets.h"
#include "bench/support/rounds.h"

namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 9;
constexpr int kRequestsPerThread = 4'000;
constexpr double kTarget = 0.55;

void onThreads(const std::function<void(int)>& body) {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&body, thread] {
            for (int request = 0; request < kRequestsPerThread; ++request) {
                body(thread);
            }
        });
    }
}

double requestsPerSecond(double nanoseconds) {
    return 1e9 * kThreads * kRequestsPerThread / nanoseconds;
}

/// The shared connection's share of what the bare sockets carry.
double measure(const char* what) {
    const ksw::bench::Question question;
    std::vector<std::unique_ptr<ksw::bench::RawSocket>> sockets;
    for (int thread = 0; thread < kThreads; ++thread) {
        sockets.push_back(std::make_unique<ksw::bench::RawSocket>(question.sizes()));
    }
    const auto connection = ksw::bench::questionConnection();
    const auto middles = ksw::bench::middleRounds(
        kRounds, {[&] { onThreads([&](int thread) { sockets[static_cast<std::size_t>(thread)]->exchange(); }); },
                  [&] { onThreads([&](int) { question.ask(*connection); }); }});
    const double ratio = middles[0] / middles[1];
    std::printf("%s, %d threads, one connection: %.0f/s, as many bare sockets: %.0f/s, ratio %.2f\n", what,
                kThreads, requestsPerSecond(middles[1]), requestsPerSecond(middles[0]), ratio);
    return ratio;
}

}  // namespace

int main() {
    const ksw::bench::BenchRoot root;
    double ratio = 0;
    {
        const auto peer = ksw::bench::scriptedPeer();
        ratio = measure("scripted peer");
    }
    {
        const auto server = ksw::bench::questionServer();
        measure("server");
    }
    std::printf("shared connection to a scripted peer: ratio %.2f (target: at least %.2f)\n", ratio, kTarget);
    return ratio >= kTarget ? 0 : 1;
}
