// One suite of requests, against a script and against the real daemon.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWManager.h>
#include <kestrelwood/KSWRegistrar.h>

#include "tests/client/manager/daemons.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::int64_t kLegacyAgent = static_cast<std::int64_t>(KSWItemTypeAgent | KSWItemTypeLegacyBit);
constexpr std::int64_t kLegacyDaemon = static_cast<std::int64_t>(KSWItemTypeDaemon | KSWItemTypeLegacyBit);

enum class Kind { Script, Real };

class EitherDaemon : public ::testing::TestWithParam<Kind> {
protected:
    EitherDaemon() {
        if (GetParam() == Kind::Script) {
            daemon_ = std::make_unique<ScriptDaemon>();
        } else {
            daemon_ = std::make_unique<RealDaemon>();
        }
        job_ = URL::fileURL(files_.writeFile("job.plist",
                                             "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>Label</key>"
                                             "<string>com.example.job</string></dict></plist>"));
        daemon_->start();
        manager_ = KSWManager::initWithMode(0);
    }

    std::int64_t enter(std::int64_t type) {
        return manager_->registerItem(&item_, std::nullopt, type, job_, configuration_, ::getuid());
    }
    std::int64_t dispositionInForce(std::int64_t type) {
        std::int64_t disposition = -1;
        EXPECT_TRUE(manager_->getEffectiveDisposition(&disposition, &constraint_, std::nullopt, type, job_,
                                                      configuration_, ::getuid()));
        return disposition;
    }

    TempFolder files_;
    std::unique_ptr<AnyDaemon> daemon_;
    std::optional<URL> job_;
    std::optional<Dictionary> configuration_ =
        Dictionary{{std::string(KSWConfigLabel), "com.example.job"},
                   {std::string(KSWConfigExecutablePath), "/usr/bin/true"},
                   {std::string(KSWConfigArguments), Array{"/usr/bin/true"}}};
    std::shared_ptr<KSWManager> manager_;
    std::shared_ptr<KSWItem> item_;
    std::optional<Data> constraint_;
};

INSTANTIATE_TEST_SUITE_P(Daemons, EitherDaemon, ::testing::Values(Kind::Script, Kind::Real),
                         [](const auto& kind) { return kind.param == Kind::Script ? "Script" : "Real"; });

TEST_P(EitherDaemon, RegistersAnAgentThatMayLoad) {
    EXPECT_EQ(enter(kLegacyAgent), KSWErrorNone);
    ASSERT_NE(item_, nullptr);
    EXPECT_EQ(item_->identifier(), "8.com.example.job");
    EXPECT_EQ(item_->url(), job_);
    EXPECT_EQ(item_->executablePath(), "/usr/bin/true");
    EXPECT_EQ(dispositionInForce(kLegacyAgent), 3);
    EXPECT_EQ(constraint_, std::nullopt);
}

TEST_P(EitherDaemon, AnswersThatARecordExists) {
    enter(kLegacyAgent);
    EXPECT_EQ(enter(kLegacyAgent), KSWErrorRecordExists);
    EXPECT_NE(item_, nullptr);
}

TEST_P(EitherDaemon, AnswersThatARecordWithOtherFactsWasUpdated) {
    enter(kLegacyAgent);
    (*configuration_)[std::string(KSWConfigExecutablePath)] = "/usr/bin/false";
    EXPECT_EQ(enter(kLegacyAgent), KSWErrorRecordUpdated);
    EXPECT_EQ(item_->executablePath(), "/usr/bin/false");
}

TEST_P(EitherDaemon, AnswersThatParametersDoNotFit) {
    EXPECT_EQ(enter(static_cast<std::int64_t>(KSWItemTypeAgent)), KSWErrorInvalidParameter);
    EXPECT_EQ(item_, nullptr);
}

TEST_P(EitherDaemon, LetsADaemonWaitForApproval) {
    EXPECT_EQ(dispositionInForce(kLegacyDaemon), 1);
    std::int64_t stored = -1;
    EXPECT_TRUE(
        manager_->getItemDisposition(&stored, std::nullopt, kLegacyDaemon, job_, configuration_, ::getuid()));
    EXPECT_EQ(stored, 1);
    EXPECT_FALSE(manager_->canLaunchItemWithAppURL(std::nullopt, kLegacyDaemon, job_, configuration_));
}

TEST_P(EitherDaemon, LetsAnAgentLaunch) {
    enter(kLegacyAgent);
    EXPECT_TRUE(manager_->canLaunchItemWithAppURL(std::nullopt, kLegacyAgent, job_, configuration_));
}

TEST_P(EitherDaemon, RemovesARecordOnce) {
    enter(kLegacyAgent);
    EXPECT_EQ(manager_->unregisterItemWithBundleURL(std::nullopt, kLegacyAgent, job_, ::getuid()), KSWErrorNone);
    EXPECT_EQ(manager_->unregisterItemWithBundleURL(std::nullopt, kLegacyAgent, job_, ::getuid()),
              KSWErrorRecordNotFound);
}

TEST_P(EitherDaemon, HandsOutARecordAndNoneThatItDoesNotHave) {
    EXPECT_EQ(manager_->fetchItemWithAppURL(std::nullopt, kLegacyAgent, job_, configuration_, ::getuid()), nullptr);
    enter(kLegacyAgent);
    const auto item = manager_->fetchItemWithAppURL(std::nullopt, kLegacyAgent, job_, configuration_, ::getuid());
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->uuid(), item_->uuid());
}

TEST_P(EitherDaemon, KnowsWhoHasRecords) {
    EXPECT_THAT(manager_->UIDs(), IsEmpty());
    enter(kLegacyAgent);
    EXPECT_THAT(manager_->UIDs(), ElementsAre(kEveryUser, ::getuid()));
}

TEST_P(EitherDaemon, AnswersTheRegistrarAlike) {
    const auto registrar = KSWRegistrar::init();
    EXPECT_EQ(registrar->registerItem(&item_, std::nullopt, kLegacyAgent, job_, configuration_, ::getuid()), 0);
    std::int64_t disposition = -1;
    EXPECT_TRUE(registrar->getEffectiveDisposition(&disposition, nullptr, std::nullopt, kLegacyAgent, job_,
                                                   configuration_, ::getuid()));
    EXPECT_EQ(disposition, 3);
    EXPECT_NE(registrar->fetchItemWithAppURL(std::nullopt, kLegacyAgent, job_, configuration_, ::getuid()),
              nullptr);
}

TEST_P(EitherDaemon, IsMissedWhenItStopsAndFoundWhenItIsBackWithItsRecords) {
    enter(kLegacyAgent);
    daemon_->stop();
    EXPECT_EQ(enter(kLegacyAgent), KSWErrorGeneric);
    EXPECT_FALSE(manager_->canLaunchItemWithAppURL(std::nullopt, kLegacyAgent, job_, configuration_));
    daemon_->start();
    EXPECT_EQ(enter(kLegacyAgent), KSWErrorRecordExists);
}

}  // namespace
}  // namespace ksw::test
