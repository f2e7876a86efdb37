#include "platform/host/activity.h"

#include <gtest/gtest.h>

#include <thread>

namespace ksw::host {
namespace {

TEST(AnActivityScope, IsLeftWhenItEnds) {
    EXPECT_EQ(currentActivity().id, 0U);
    {
        const ActivityScope outer("outer");
        const std::uint64_t outerId = currentActivity().id;
        {
            const ActivityScope inner("inner");
            EXPECT_EQ(currentActivity().name, "inner");
            EXPECT_NE(currentActivity().id, outerId);
        }
        EXPECT_EQ(currentActivity().name, "outer");
        EXPECT_EQ(currentActivity().id, outerId);
    }
    EXPECT_EQ(currentActivity().id, 0U);
}

TEST(AnActivityScopeOnlyIfNone, DoesNothingInsideAnotherOne) {
    const ActivityScope outer("outer");
    {
        const ActivityScope inner("inner", ActivityScope::Rule::OnlyIfNone);
        EXPECT_EQ(currentActivity().name, "outer");
    }
    EXPECT_EQ(currentActivity().name, "outer");
}

TEST(AnActivityScopeOnlyIfNone, IsEnteredByAThreadOutsideOfAny) {
    const ActivityScope scope("alone", ActivityScope::Rule::OnlyIfNone);
    EXPECT_EQ(currentActivity().name, "alone");
}

TEST(AnActivity, IsLeftWhenAnExceptionPasses) {
    try {
        const ActivityScope scope("thrown through");
        throw 1;
    } catch (int) {
        EXPECT_EQ(currentActivity().id, 0U);
    }
}

TEST(AnActivity, BelongsToItsThread) {
    const ActivityScope scope("mine");
    std::thread([] { EXPECT_EQ(currentActivity().id, 0U); }).join();
}

}  // namespace
}  // namespace ksw::host
