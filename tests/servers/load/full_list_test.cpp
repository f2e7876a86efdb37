// The longest list that a user may have, from the daemon to the program and back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <csignal>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWManager.h>

#include "platform/base/limits.h"
#include "tests/servers/kestrelwoodd/daemon_process.h"
#include "tests/servers/load/load.h"

namespace ksw::test {
namespace {

/// So many jobs and their developers are the last list that is allowed.
constexpr int kJobsOfALastList = 13'107;

std::size_t recordsOf(int jobs) {
    return static_cast<std::size_t>(jobs) +
           static_cast<std::size_t>(jobs + kJobsOfADeveloper - 1) / kJobsOfADeveloper;
}

TEST(AListOfItsLastLength, IsFetchedDecodedAndRefreshed) {
    ASSERT_EQ(recordsOf(kJobsOfALastList), limits::kListItemsMax);
    const daemon::test::DaemonHost host;
    recordJobs(::getuid(), kJobsOfALastList);
    const auto process = host.startReady();
    ASSERT_NE(process, nullptr);
    const auto manager = KSWManager::initWithMode(0);
    std::optional<Error> error;
    const auto list = manager->getItemsMatching(KSWItemTypeAll, ::getuid(), &error);
    ASSERT_NE(list, nullptr) << error->description();
    const KSWList::Items items = list->items();
    ASSERT_EQ(items.size(), limits::kListItemsMax);
    int jobs = 0;
    for (const auto& item : items) {
        if (item->intersectsType(KSWItemTypeAgent)) {
            ASSERT_EQ(item->identifier(), identifierOf(jobs));
            ASSERT_EQ(item->lightweightRequirement(), constraintOf(jobs));
            ASSERT_NE(item->container(), nullptr);
            ++jobs;
        }
    }
    EXPECT_EQ(jobs, kJobsOfALastList);

    const auto other = KSWManager::initWithMode(0);
    const auto last = other->getItemWithIdentifier(identifierOf(kJobsOfALastList - 1), ::getuid());
    ASSERT_NE(last, nullptr);
    last->setAllowed(false);
    ASSERT_TRUE(other->updateItem(last, ::getuid(), &error)) << error->description();
    ASSERT_TRUE(list->refreshWithError(&error)) << error->description();
    ASSERT_EQ(list->count(), limits::kListItemsMax);
    const auto index = list->indexOfItem(last);
    ASSERT_TRUE(index.has_value());
    EXPECT_FALSE(list->itemAtIndex(*index)->isAllowed());
}

TEST(AListOfItsLastLength, IsRefusedWithOneItemMore) {
    const daemon::test::DaemonHost host;
    recordJobs(::getuid(), kJobsOfALastList + 1);
    const auto process = host.startReady();
    ASSERT_NE(process, nullptr);
    const auto manager = KSWManager::initWithMode(0);
    std::optional<Error> error;
    EXPECT_EQ(manager->getItemsMatching(KSWItemTypeAll, ::getuid(), &error), nullptr);
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->domain(), KSWErrorDomain);
    EXPECT_EQ(error->code(), KSWErrorGeneric);
    const auto jobs = manager->getItemsMatching(KSWItemTypeAgent, ::getuid(), &error);
    ASSERT_NE(jobs, nullptr);
    EXPECT_EQ(jobs->count(), static_cast<std::size_t>(kJobsOfALastList + 1));
    process->signal(SIGTERM);
    EXPECT_THAT(process->wait().output,
                testing::HasSubstr("user " + std::to_string(::getuid()) +
                                   " has 16385 items that match, more than a list may have"));
}

}  // namespace
}  // namespace ksw::test
