// files_bench.cpp: what it takes to resolve a bookmark whose file did not move, beside one statx of its path, and
// to make one; and to name a job by the path of its executable. Ends with 1 when a target is missed and it was
// called with "--strict".
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include <kestrelwood/KSWAdditions.h>
#include <kestrelwood/KSWFunctions.h>

#include "bench/support/question.h"
#include "bench/support/rounds.h"
#include "platform/host/file_facts.h"
#include "platform/host/sys.h"

namespace {

using namespace ksw;

constexpr int kRounds = 301;
constexpr int kCallsARound = 200;
constexpr double kResolvingTarget = 4;

[[noreturn]] void fail(const std::string& text) {
    std::fprintf(stderr, "%s\n", text.c_str());
    std::exit(2);
}

template <class Body>
auto manyTimes(Body body) {
    return [body] {
        for (int call = 0; call < kCallsARound; ++call) {
            body();
        }
    };
}

/// The name of a job whose executable lies at the path.
auto naming(const std::string& path) {
    return manyTimes([config = std::optional(Dictionary{{KSWConfigExecutablePath, path}})] {
        if (!ItemNameForStewardPlist(config)) {
            fail("not named");
        }
    });
}

/// A path of 12 components that leads into an application, the eighth of them, or into none.
std::string programBelow(const std::string& root, const std::string& eighth) {
    std::string path = root;
    while (pathComponents(path).size() < 7) {
        path += "/folder";
    }
    path += "/" + eighth + "/Contents";
    std::filesystem::create_directories(path + "/Library/Helpers");
    std::ofstream(path + "/Info.plist")
        << "<plist><dict><key>QCBundleName</key><string>Tool</string></dict></plist>";
    path += "/Library/Helpers/tool";
    if (pathComponents(path).size() != 12) {
        fail("not 12 components: " + path);
    }
    return path;
}

}  // namespace

int main(int count, char** words) {
    const bench::BenchRoot root;
    const std::string folder = root.path() + "/Applications/Office/Writer.app/Contents/Linux";
    const std::string path = folder + "/writer";
    std::filesystem::create_directories(folder);
    std::ofstream(path).put('x');
    const URL url = URL::fileURL(path);
    const std::optional<Data> bookmark = __ksw_bookmarkDataWithURL(url);
    if (!bookmark) {
        fail("no bookmark of " + path);
    }
    const auto times = bench::middleRounds(
        kRounds, {manyTimes([&] {
                      if (!host::sys::statx(path, 0, host::kFactsMask)) {
                          fail("no " + path);
                      }
                  }),
                  manyTimes([&] {
                      if (!__ksw_resolveBookmark(*bookmark)) {
                          fail("not resolved");
                      }
                  }),
                  manyTimes([&] {
                      if (!__ksw_bookmarkDataWithURL(url)) {
                          fail("not made");
                      }
                  }),
                  naming(programBelow(root.path(), "folder")), naming(programBelow(root.path(), "Tool.app"))});
    const double ratio = times[1] / times[0];
    std::printf("resolving a bookmark: %.0f ns, statx of its path: %.0f ns, ratio %.2f (target: at most %.1f)\n",
                times[1] / kCallsARound, times[0] / kCallsARound, ratio, kResolvingTarget);
    std::printf("making a bookmark: %.1f us, ratio %.1f to the statx; %zu bytes\n", times[2] / kCallsARound / 1e3,
                times[2] / times[0], bookmark->size());
    std::printf(
        "naming a job by a path of 12 components: %.2f us, in an application, whose name is read: %.1f us\n",
        times[3] / kCallsARound / 1e3, times[4] / kCallsARound / 1e3);
    return bench::exitStatus(ratio <= kResolvingTarget, count, words);
}
