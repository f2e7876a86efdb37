// applications_bench.cpp: what it takes to look an application up by its identifier among 500 that are known,
// beside finding the same identifiers in a map; and to look at the folders. Ends with 1 when a target is missed and
// it was called with "--strict".
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unordered_map>
#include <vector>

#include <unistd.h>

#include "bench/support/rounds.h"
#include "platform/facts/application_registry.h"

namespace {

using namespace ksw;

constexpr int kApplications = 500;
constexpr int kLookups = 100'000;
constexpr int kRounds = 9;
constexpr double kTarget = 1000;  // ns

/// The folders of a host with applications for everybody and for the user.
class Host {
public:
    Host() {
        std::string pattern = std::filesystem::temp_directory_path() / "ksw-bench-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            std::exit(2);
        }
        root_ = pattern;
        ::setenv("KESTRELWOOD_ROOT", pattern.c_str(), 1);
        ::setenv("HOME", "/home/me", 1);
        for (int i = 0; i < kApplications; ++i) {
            const std::string identifier = "com.example.application" + std::to_string(i);
            add(root_ / (i % 5 == 0 ? "home/me/Applications" : "Applications") / (identifier + ".app"), identifier);
            identifiers.push_back(identifier);
        }
    }
    ~Host() {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }

    std::vector<std::string> identifiers;

private:
    static void add(const std::filesystem::path& path, const std::string& identifier) {
        std::filesystem::create_directories(path / "Contents" / "Linux");
        std::ofstream(path / "Contents" / "Info.plist")
            << "<plist><dict><key>QCBundleIdentifier</key><string>" << identifier
            << "</string><key>QCBundleExecutable</key><string>tool</string></dict></plist>";
        std::ofstream(path / "Contents" / "Linux" / "tool") << "#!/bin/sh\n";
    }

    std::filesystem::path root_;
};

/// Can be put forward, so that the folders are looked at again.
class LeapingClock final : public host::Clock {
public:
    std::chrono::nanoseconds monotonic() const override { return host::systemClock().monotonic() + leapt_; }
    Date wall() const override { return Date{host::systemClock().wall().secondsSinceReference + 10}; }
    void forward() { leapt_ += std::chrono::hours(1); }

private:
    std::chrono::nanoseconds leapt_{};
};

}  // namespace

int main(int count, char** words) {
    Host host;
    LeapingClock clock;
    facts::ApplicationRegistry registry(clock);
    const Uid user = ::geteuid();
    std::unordered_map<std::string_view, facts::ApplicationPointer> floor;
    for (const std::string& identifier : host.identifiers) {
        floor[identifier] = registry.find(identifier, user);
        if (floor[identifier] == nullptr) {
            std::fprintf(stderr, "%s is not found\n", identifier.c_str());
            return 2;
        }
    }
    const auto identifier = [&](int i) -> std::string_view {
        return host.identifiers[static_cast<std::size_t>(i * 7919 % kApplications)];
    };
    bool isThere = true;
    const auto times = bench::middleRounds(kRounds, {[&] {
                                                         for (int i = 0; i < kLookups; ++i) {
                                                             isThere &=
                                                                 registry.find(identifier(i), user) != nullptr;
                                                         }
                                                     },
                                                     [&] {
                                                         for (int i = 0; i < kLookups; ++i) {
                                                             const auto found = floor.find(identifier(i))->second;
                                                             isThere &= found != nullptr;
                                                         }
                                                     },
                                                     [&] {
                                                         clock.forward();
                                                         isThere &= registry.find(identifier(0), user) != nullptr;
                                                     }});
    const double lookup = times[0] / kLookups;
    const double map = times[1] / kLookups;
    std::printf("application looked up: %.0f ns, found in a map: %.0f ns, ratio %.2f (target: under %g ns)\n",
                lookup, map, lookup / map, kTarget);
    std::printf("folders of %d applications looked at, once a second: %.0f us\n", kApplications, times[2] / 1000);
    return isThere ? bench::exitStatus(lookup < kTarget, count, words) : 2;
}
