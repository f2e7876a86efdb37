// Requests about the legacy login items, device management and the database, against the real daemon.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWManager.h>

#include "platform/host/log_capture.h"
#include "tests/client/manager/daemons.h"

namespace ksw::test {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

const Error kBefore{"Before", 1};
constexpr auto kUserItem = static_cast<std::int64_t>(KSWItemTypeUserItem);
constexpr auto kLegacyAgent = static_cast<std::int64_t>(KSWItemTypeAgent | KSWItemTypeLegacyBit);

class TheRealDaemon : public ::testing::Test {
protected:
    TheRealDaemon() {
        daemon_.start();
        manager_ = KSWManager::initWithMode(0);
        roster_ = KSWManager::initWithMode(1);
    }

    std::shared_ptr<KSWItem> added() {
        return roster_->addRosterItemWithURL(url_, kUserItem, false, false, &error_);
    }
    std::shared_ptr<KSWItem> registered() {
        std::shared_ptr<KSWItem> item;
        const Dictionary job{{KSWConfigLabel, "com.example.job"}, {KSWConfigExecutablePath, "/usr/bin/true"}};
        manager_->registerItem(&item, std::nullopt, kLegacyAgent, URL::fileURL("/jobs/a.plist"), job, ::getuid());
        return item;
    }

    RealDaemon daemon_;
    std::shared_ptr<KSWManager> manager_;
    std::shared_ptr<KSWManager> roster_;
    host::LogCapture log_;
    std::optional<URL> url_ = URL::fromString("https://example.com/");
    std::optional<Error> error_ = kBefore;
    const std::optional<Authorization> authorization_ = Authorization::ofCallingProcess();
    const Dictionary rules_{
        {"Rules", Array{Dictionary{{"Match", "Label"}, {"Value", "com.example.job"}, {"Effect", "Disallow"}}}}};
};

TEST_F(TheRealDaemon, AnswersTheSameLegacyItemWhenItIsAddedAgain) {
    const auto item = added();
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_TRUE(item->isEnabled() && item->isAllowed());
    const auto again = added();
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->uuid(), item->uuid());
    EXPECT_EQ(error_, std::nullopt);
    EXPECT_EQ(log_.count("Existing item found for https://example.com/ and was changed to 'allow'"), 1U);
    const auto items = roster_->fetchRosterItemsMatching(kUserItem, &error_);
    ASSERT_TRUE(items.has_value());
    ASSERT_EQ(items->size(), 1U);
    EXPECT_EQ(items->front()->uuid(), item->uuid());
}

TEST_F(TheRealDaemon, UpdatesALegacyItemAsOftenAsItIsCurrent) {
    const auto item = added();
    const auto stale = item->copy();
    const std::int64_t generation = item->generation();
    error_ = kBefore;
    item->setAllowed(false);
    EXPECT_TRUE(roster_->updateRosterItem(item, &error_));
    item->setHidden(true);
    EXPECT_TRUE(roster_->updateRosterItem(item, &error_));
    EXPECT_EQ(item->generation(), generation + 2);
    EXPECT_EQ(error_, kBefore);
    EXPECT_FALSE(roster_->updateRosterItem(stale, &error_));
    EXPECT_EQ(error_, KSWErrorWithCode(KSWErrorInvalidGeneration));
}

TEST_F(TheRealDaemon, RemovesALegacyItemOnce) {
    const auto item = added();
    EXPECT_TRUE(roster_->removeRosterItem(item, &error_));
    EXPECT_FALSE(roster_->removeRosterItem(item, &error_));
    EXPECT_EQ(error_, KSWErrorWithCode(KSWErrorRecordNotFound));
    EXPECT_THAT(roster_->fetchRosterItemsMatching(kUserItem).value(), IsEmpty());
}

TEST_F(TheRealDaemon, LeavesItemsAloneUntilAPayloadSaysThatItHoldsAtOnce) {
    const auto item = registered();
    ASSERT_NE(item, nullptr);
    const auto isAllowed = [&] { return manager_->fetchItemWithUUID(item->uuid(), ::getuid())->isAllowed(); };
    manager_->setMDMPayload(rules_, "com.example.rules");
    EXPECT_EQ(manager_->mdmPayloadForIdentifier("com.example.rules"), rules_);
    EXPECT_TRUE(isAllowed());
    manager_->setMDMPayload(rules_, "com.example.rules", true);
    EXPECT_FALSE(isAllowed());
    manager_->setMDMPayload(std::nullopt, "com.example.rules", true);
    EXPECT_EQ(manager_->mdmPayloadForIdentifier("com.example.rules"), std::nullopt);
    EXPECT_TRUE(isAllowed());
    EXPECT_THAT(log_.at(host::LogLevel::Error), IsEmpty());
}

TEST_F(TheRealDaemon, SaysWhyAJobIsNotManaged) {
    EXPECT_FALSE(manager_->submitManagedJobAtPath("/nowhere/job.plist", &error_));
    EXPECT_NE(error_, kBefore);
    EXPECT_THAT(log_.at(host::LogLevel::Error),
                Contains("submitManagedJobAtPath: error: " + error_.value().description()));
    EXPECT_FALSE(manager_->removeManagedJobAtPath("/nowhere/job.plist", &error_));
    EXPECT_EQ(error_, KSWErrorWithCode(KSWErrorRecordNotFound));
    EXPECT_FALSE(manager_->removeManagedJobWithLabel("nobody", &error_));
    EXPECT_EQ(error_, KSWErrorWithCode(KSWErrorRecordNotFound));
}

TEST_F(TheRealDaemon, TakesTheServiceManagersNotes) {
    manager_->stewardWillScanPath("/Library/Agents");
    manager_->stewardDidScanPath("/Library/Agents");
    manager_->noteLogoutForUID(::getuid());
    EXPECT_TRUE(manager_->scheduleGarbageCollection());
    EXPECT_THAT(log_.at(host::LogLevel::Error), IsEmpty());
}

TEST_F(TheRealDaemon, DumpsWhatItHasAndLeavesTheErrorAsItWas) {
    const auto item = registered();
    const auto text = manager_->dumpDatabaseWithAuthorization(authorization_, &error_);
    ASSERT_TRUE(text.has_value());
    EXPECT_THAT(*text, HasSubstr(item->uuid()->string()));
    EXPECT_EQ(error_, kBefore);
}

TEST_F(TheRealDaemon, ForgetsEverythingWhenItIsErased) {
    const auto item = registered();
    EXPECT_TRUE(manager_->eraseDatabaseWithAuthorization(authorization_, &error_));
    EXPECT_EQ(error_, kBefore);
    EXPECT_EQ(manager_->fetchItemWithUUID(item->uuid(), ::getuid()), nullptr);
    EXPECT_THAT(*manager_->dumpDatabaseWithAuthorization(authorization_), Not(HasSubstr(item->uuid()->string())));
}

}  // namespace
}  // namespace ksw::test
