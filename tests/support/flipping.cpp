#include "tests/support/flipping.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <thread>

#include <fcntl.h>

namespace ksw::test {

namespace {

constexpr int kFlips = 10'000;
static_assert(kFlips % 2 == 0);

}  // namespace

void flip(const std::string& one, const std::string& other) {
    EXPECT_EQ(::renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE), 0);
}

void whileFlipping(const std::string& one, const std::string& other, const std::function<void()>& look) {
    std::atomic<bool> isDone = false;
    std::thread flipper([&] {
        for (int done = 0; done < kFlips; ++done) {
            flip(one, other);
        }
        isDone = true;
    });
    do {
        look();
    } while (!isDone);
    flipper.join();
}

}  // namespace ksw::test
