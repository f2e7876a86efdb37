// roundtrip_bench.cpp: a typed request and its reply, beside the same bytes to and fro over a bare socket. Client
// and peers share one CPU. With --strict it ends with 1 when a ratio is over its target.
#include <cstdio>

#include "bench/support/child_process.h"
#include "bench/support/question.h"
#include "bench/support/raw_sockets.h"
#include "bench/support/rounds.h"

namespace {

constexpr int kRounds = 15;
constexpr int kRequestsPerRound = 10'000;
constexpr double kScriptedTarget = 1.25;
constexpr double kDaemonTarget = 1.6;

bool report(const char* what, double nanoseconds, double floor, double target) {
    std::printf("%s: %.0f ns, bare socket: %.0f ns, ratio %.2f (target: at most %.2f)\n", what,
                nanoseconds / kRequestsPerRound, floor / kRequestsPerRound, nanoseconds / floor, target);
    return nanoseconds / floor <= target;
}

/// Measures requests of a manager to the peer that listens, and the bare socket, in turns.
bool measure(const char* what, KSWManager& manager, double target) {
    const ksw::bench::Question question;
    ksw::bench::RawSocket raw(question.sizes());
    const auto repeated = [](auto body) {
        return [body] {
            for (int request = 0; request < kRequestsPerRound; ++request) {
                body();
            }
        };
    };
    const auto middles = ksw::bench::middleRounds(
        kRounds, {repeated([&] { raw.exchange(); }), repeated([&] { question.ask(manager); })});
    return report(what, middles[1], middles[0], target);
}

}  // namespace

int main(int count, char** words) {
    ksw::bench::stayOnOneCpu();
    const ksw::bench::BenchRoot root;
    bool holds = true;
    {
        const auto peer = ksw::bench::scriptedPeer();
        holds = measure("manager to a scripted peer", *KSWManager::initWithMode(0), kScriptedTarget);
    }
    {
        const auto daemon = ksw::bench::managementDaemon();
        const auto manager = KSWManager::initWithMode(0);
        ksw::bench::Question{}.enter(*manager);
        holds = measure("manager to kestrelwoodd", *manager, kDaemonTarget) && holds;
    }
    return ksw::bench::exitStatus(holds, count, words);
}
