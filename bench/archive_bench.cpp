// archive_bench: writing and reading a list of 10,000 items, every field filled, in 100 shared containers.
// The floor is copying the same items, in the same run. archive_bench [ROUNDS]; prints nanoseconds an item, the
// best of the rounds, and the ratio to the floor.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <time.h>

#include <kestrelwood/KSWItem.h>

#include "bench/support/items.h"
#include "model/item/item_archive.h"
#include "platform/archive/keyed_archive.h"

namespace {

using ksw::bench::Items;
using ksw::bench::makeItem;

constexpr int kItems = 10'000;
constexpr int kContainers = 100;
constexpr double kEncodeTarget = 2.0;
constexpr double kDecodeTarget = 2.5;

/// CPU time of this thread in nanoseconds: what other programs do on the machine is not in it.
double now() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

/// The quickest of its turns, in nanoseconds an item.
class Figure {
public:
    /// What `run` answers lives until the clock has stopped.
    template <class Run>
    void turn(const Run& run) {
        const double begin = now();
        const auto kept = run();
        best_ = std::min(best_, (now() - begin) / kItems);
    }
    double best() const { return best_; }

private:
    double best_ = 1e18;
};

void report(const char* what, double figure, double floor, double target) {
    std::printf("%-8s %8.1f ns an item; floor (copy) %8.1f ns; ratio %.2f (target %.1f)\n", what, figure, floor,
                figure / floor, target);
}

}  // namespace

int main(int argumentCount, char** arguments) {
    const int rounds = argumentCount > 1 ? std::max(1, std::atoi(arguments[1])) : 25;
    Items containers;
    Items items;
    for (int i = 0; i < kContainers; ++i) {
        containers.push_back(makeItem(kItems + i, 0x20));
    }
    for (int i = 0; i < kItems; ++i) {
        items.push_back(makeItem(i, 0x8));
        items.back()->_setContainer(containers[static_cast<std::size_t>(i % kContainers)]);
    }
    const auto encode = [&items] {
        return ksw::archive::archiveArray<KSWItem>(items, ksw::archive::Coder::Ordinary);
    };
    const auto archive = encode();
    if (!archive) {
        std::fprintf(stderr, "%s\n", archive.error().description().c_str());
        return 1;
    }
    const auto decode = [&archive] {
        ksw::archive::DecodeBudget budget(archive->size());
        return ksw::archive::unarchiveArray<KSWItem>(*archive, {.cycles = ksw::archive::Cycles::Allowed}, budget);
    };
    if (const auto decoded = decode(); !decoded || decoded->roots.size() != items.size()) {
        std::fprintf(stderr, "%s\n", decoded ? "items are missing" : decoded.error().description().c_str());
        return 1;
    }
    Figure floor;
    Figure encoding;
    Figure decoding;
    for (int round = 0; round < rounds; ++round) {
        floor.turn([&items] { return ksw::bench::copies(items); });
        encoding.turn(encode);
        decoding.turn(decode);
    }
    std::printf("%d items, %zu bytes each\n", kItems, archive->size() / kItems);
    report("encode", encoding.best(), floor.best(), kEncodeTarget);
    report("decode", decoding.best(), floor.best(), kDecodeTarget);
    return 0;
}
