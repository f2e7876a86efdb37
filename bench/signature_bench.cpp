// signature_bench.cpp: what it takes to verify a signed executable of 50 MiB, beside hashing the same bytes with
// libcrypto alone, and to ask about it again. Ends with 1 when a target is missed and it was called with
// "--strict".
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "bench/support/question.h"
#include "bench/support/rounds.h"
#include "platform/facts/code.h"
#include "platform/facts/sign.h"
#include "platform/host/host_root.h"

namespace {

using namespace ksw;

constexpr std::size_t kCodeSize = 50 * limits::kMiB;
constexpr int kRounds = 15;
constexpr int kSecondReadings = 10'000;
constexpr double kHashingTarget = 1.15;
constexpr double kSecondReadingTarget = 20'000;  // ns

[[noreturn]] void fail(const std::string& text) {
    std::fprintf(stderr, "%s\n", text.c_str());
    std::exit(2);
}

/// The clock, put forward: files that were just written count as old enough to be remembered.
class LaterClock final : public host::Clock {
public:
    std::chrono::nanoseconds monotonic() const override { return host::systemClock().monotonic(); }
    Date wall() const override { return Date{host::systemClock().wall().secondsSinceReference + 10}; }
};

Data contentOf(const std::string& path) {
    std::ifstream file(path, std::ifstream::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void runOpenssl(const std::string& arguments) {
    if (std::system(("openssl " + arguments + " >/dev/null 2>&1").c_str()) != 0) {
        fail("openssl " + arguments);
    }
}

/// A signed executable, whose signer's certificate is trusted.
std::string makeExecutable(const std::string& root) {
    const std::string trust = root + "/etc/kestrelwood/trust";
    std::filesystem::create_directories(trust);
    runOpenssl(
        "req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 -subj /CN=bench/O=Bench -keyout " +
        root + "/key -out " + trust + "/bench.pem -addext extendedKeyUsage=codeSigning");
    Data code(kCodeSize);
    for (std::size_t index = 0; index < code.size(); ++index) {
        code[index] = static_cast<std::uint8_t>(index * 2654435761U >> 13U);
    }
    const std::string head =
        "\x7F"
        "ELF";
    std::copy(head.begin(), head.end(), code.begin());
    const std::string path = root + "/executable";
    std::ofstream(path, std::ofstream::binary)
        .write(reinterpret_cast<const char*>(code.data()), static_cast<std::streamsize>(code.size()));
    SigningRequest request;
    request.identifier = "com.example.bench";
    request.key = contentOf(root + "/key");
    request.chain = contentOf(trust + "/bench.pem");
    if (Status status = facts::sign(path, request); !status) {
        fail(status.error().description());
    }
    return path;
}

void judge(const std::string& path, facts::Verifier& verifier) {
    const Result<facts::StaticCode> code = facts::StaticCode::open(path, verifier);
    const auto facts = code ? code->facts() : Result<std::shared_ptr<const facts::CodeFacts>>(code.error());
    if (!facts) {
        fail(facts.error().description());
    }
}

}  // namespace

int main(int count, char** words) {
    const bench::BenchRoot root;
    const std::string path = makeExecutable(host::hostRoot());
    const Data bytes = contentOf(path);
    const facts::LibCrypto& crypto = *facts::LibCrypto::shared();
    const LaterClock clock;
    const auto times =
        bench::middleRounds(kRounds, {[&] { static_cast<void>(facts::sha256Of(crypto, bytes).ok()); },
                                      [&] {
                                          facts::Verifier verifier(clock);
                                          judge(path, verifier);
                                      }});
    facts::Verifier verifier(clock);
    judge(path, verifier);
    // Each reading by itself: what else runs on the machine disturbs few of them.
    const auto again = bench::middleRounds(kSecondReadings, {[&] { judge(path, verifier); }});
    const double ratio = times[1] / times[0];
    const double second = again[0];
    std::printf("verifying 50 MiB: %.1f ms, hashing them alone: %.1f ms, ratio %.2f (target: at most %.2f)\n",
                times[1] / 1e6, times[0] / 1e6, ratio, kHashingTarget);
    std::printf("second reading: %.1f us (target: at most %.0f us)\n", second / 1e3, kSecondReadingTarget / 1e3);
    return bench::exitStatus(ratio <= kHashingTarget && second <= kSecondReadingTarget, count, words);
}
