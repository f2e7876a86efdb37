// throughput_bench.cpp: eight threads that share one manager, beside eight threads with a bare socket each. With
// --strict it ends with 1 when the shared one carries too little.
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

bool measure(const char* what, KSWManager& manager) {
    const ksw::bench::Question question;
    std::vector<std::unique_ptr<ksw::bench::RawSocket>> sockets;
    for (int thread = 0; thread < kThreads; ++thread) {
        sockets.push_back(std::make_unique<ksw::bench::RawSocket>(question.sizes()));
    }
    const auto middles = ksw::bench::middleRounds(
        kRounds, {[&] { onThreads([&](int thread) { sockets[static_cast<std::size_t>(thread)]->exchange(); }); },
                  [&] { onThreads([&](int) { question.ask(manager); }); }});
    const double ratio = middles[0] / middles[1];
    std::printf("%s, %d threads, one manager: %.0f/s, as many bare sockets: %.0f/s, ratio %.2f (target: %.2f)\n",
                what, kThreads, requestsPerSecond(middles[1]), requestsPerSecond(middles[0]), ratio, kTarget);
    return ratio >= kTarget;
}

}  // namespace

int main(int count, char** words) {
    const ksw::bench::BenchRoot root;
    bool holds = true;
    {
        const auto peer = ksw::bench::scriptedPeer();
        holds = measure("scripted peer", *KSWManager::initWithMode(0));
    }
    {
        const auto daemon = ksw::bench::managementDaemon();
        const auto manager = KSWManager::initWithMode(0);
        ksw::bench::Question{}.enter(*manager);
        holds = measure("kestrelwoodd", *manager) && holds;
    }
    return ksw::bench::exitStatus(holds, count, words);
}
