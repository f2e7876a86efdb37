#include <gtest/gtest.h>

#include "platform/base/limits.h"
#include "platform/ipc/quota.h"

namespace ksw::ipc {
namespace {

constexpr Uid kAlice = 501;
constexpr Uid kBob = 502;

Quotas::Bounds realBounds() {
    return {limits::kConnectionsMax, limits::kConnectionsPerUidMax, limits::kConnectionsReservedForRoot,
            limits::kBytesPerUidMax, limits::kBytesHeldMax};
}

TEST(Quotas, GiveAUserItsLastConnectionAndNotOneMore) {
    Quotas quotas(realBounds());
    for (std::size_t count = 0; count < limits::kConnectionsPerUidMax; ++count) {
        ASSERT_TRUE(quotas.tryConnect(kAlice)) << count;
    }
    EXPECT_FALSE(quotas.tryConnect(kAlice));
    EXPECT_EQ(quotas.hits(), 1U);
    EXPECT_TRUE(quotas.tryConnect(kBob));
    quotas.disconnect(kAlice);
    EXPECT_TRUE(quotas.tryConnect(kAlice));
}

TEST(Quotas, KeepTheLastConnectionsForRoot) {
    Quotas quotas({limits::kConnectionsMax, limits::kConnectionsMax, limits::kConnectionsReservedForRoot, 1, 1});
    const std::size_t forUsers = limits::kConnectionsMax - limits::kConnectionsReservedForRoot;
    for (std::size_t count = 0; count < forUsers; ++count) {
        ASSERT_TRUE(quotas.tryConnect(static_cast<Uid>(1000 + count))) << count;
    }
    EXPECT_FALSE(quotas.tryConnect(kAlice));
    for (std::size_t count = 0; count < limits::kConnectionsReservedForRoot; ++count) {
        EXPECT_FALSE(quotas.isFull());
        ASSERT_TRUE(quotas.tryConnect(0)) << count;
    }
    EXPECT_TRUE(quotas.isFull());
    EXPECT_FALSE(quotas.tryConnect(0));
    EXPECT_EQ(quotas.connections(), limits::kConnectionsMax);
}

TEST(Quotas, LetAUserHoldItsLastByteAndNotOneMore) {
    Quotas quotas(realBounds());
    Charge charge(quotas, kAlice);
    EXPECT_TRUE(charge.tryResize(limits::kBytesPerUidMax));
    EXPECT_FALSE(charge.tryResize(limits::kBytesPerUidMax + 1));
    EXPECT_EQ(charge.bytes(), limits::kBytesPerUidMax);
    Charge other(quotas, kAlice);
    EXPECT_FALSE(other.tryResize(1));
    charge.resize(limits::kBytesPerUidMax - 1);
    EXPECT_TRUE(other.tryResize(1));
}

TEST(Quotas, LeaveEveryFurtherUserAShare) {
    Quotas quotas({10, 10, 0, 1'000, 1'000});
    Charge alice(quotas, kAlice);
    EXPECT_FALSE(alice.tryResize(501));
    EXPECT_TRUE(alice.tryResize(500));
    Charge bob(quotas, kBob);
    EXPECT_FALSE(bob.tryResize(167));
    EXPECT_TRUE(bob.tryResize(166));
    Charge carol(quotas, 503);
    EXPECT_TRUE(carol.tryResize(83));
}

TEST(ACharge, IsGivenBackByItsDestructor) {
    Quotas quotas(realBounds());
    {
        Charge charge(quotas, kAlice);
        ASSERT_TRUE(charge.tryResize(limits::kBytesPerUidMax));
        const Charge moved(std::move(charge));
        EXPECT_EQ(moved.bytes(), limits::kBytesPerUidMax);
    }
    Charge again(quotas, kAlice);
    EXPECT_TRUE(again.tryResize(limits::kBytesPerUidMax));
}

TEST(ACharge, OfNobodyIsAlwaysGranted) {
    Charge charge;
    EXPECT_TRUE(charge.tryResize(SIZE_MAX));
}

}  // namespace
}  // namespace ksw::ipc
