// Whether an item may launch, and the launchable parts of an application.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include "tests/client/manager/scripted_daemon.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::string_view kPermissionDenied = "Error Domain=KSWErrorDomain Code=-97 \"permission denied\"";

AuditToken someToken() {
    return AuditToken{{501, 20, 501, 20, 4711, 1, 0, 99}};
}

class EffectiveDisposition : public ClientTest {
protected:
    void answerOfURL(std::int64_t disposition, std::optional<Data> bytes, std::int64_t code) {
        daemon_.answer(methods::kEffectiveDispositionOfURL, disposition, std::move(bytes), code);
        daemon_.start();
    }
    bool ask() {
        return manager()->getEffectiveDisposition(&disposition_, &constraint_, app_, 8, job_, configuration_, 501);
    }

    ScriptedDaemon daemon_;
    std::int64_t disposition_ = 77;
    std::optional<Data> constraint_ = Data{9};
};

TEST_F(EffectiveDisposition, ComesWithTheLaunchConstraint) {
    answerOfURL(3, Data{1, 2, 3}, 0);
    EXPECT_TRUE(ask());
    EXPECT_EQ(disposition_, 3);
    EXPECT_EQ(constraint_, (Data{1, 2, 3}));
}

TEST_F(EffectiveDisposition, WithoutBytesClearsTheLaunchConstraint) {
    answerOfURL(1, std::nullopt, 0);
    EXPECT_TRUE(ask());
    EXPECT_EQ(disposition_, 1);
    EXPECT_EQ(constraint_, std::nullopt);
}

TEST_F(EffectiveDisposition, CarriesEveryArgumentToTheDaemon) {
    answerOfURL(3, std::nullopt, 0);
    ask();
    const SeenRequest seen = daemon_.onlyRequest();
    EXPECT_EQ(seen.bundle, app_);
    EXPECT_EQ(seen.type, 8);
    EXPECT_EQ(seen.relative, job_);
    EXPECT_EQ(seen.configuration, configuration_);
    EXPECT_EQ(seen.uid, 501U);
}

TEST_F(EffectiveDisposition, IsLoggedWithWhetherThereIsALaunchConstraint) {
    answerOfURL(3, Data{1}, 0);
    ask();
    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, host::LogLevel::Notice);
    EXPECT_EQ(lines[0].text, "%s: disposition=%{public}@, have LWCR=%{bool}d");
    EXPECT_EQ(lines[0].publicForm,
              "getEffectiveDisposition: disposition=[enabled, allowed, visible, not notified], have LWCR=true");
    EXPECT_EQ(lines[0].activity, "KSWManager.getEffectiveDisposition");
}

TEST_F(EffectiveDisposition, OfARefusedRequestLeavesTheOutParametersAndLogsTheError) {
    answerOfURL(3, Data{1}, -97);
    EXPECT_FALSE(ask());
    EXPECT_EQ(disposition_, 77);
    EXPECT_EQ(constraint_, Data{9});
    EXPECT_THAT(errors(), ElementsAre("getEffectiveDisposition: error: " + std::string(kPermissionDenied)));
}

TEST_F(EffectiveDisposition, MayBeAskedForWithoutEitherOutParameter) {
    answerOfURL(3, Data{1}, 0);
    EXPECT_TRUE(manager()->getEffectiveDisposition(nullptr, nullptr, app_, 8, job_, configuration_, 501));
}

TEST_F(EffectiveDisposition, IsStoredInAnUnsignedNumberToo) {
    answerOfURL(3, std::nullopt, 0);
    KSWDisposition disposition = 77;
    EXPECT_TRUE(manager()->getEffectiveDisposition(&disposition, nullptr, app_, 8, job_, configuration_, 501));
    EXPECT_EQ(disposition, KSWDispositionEnabled | KSWDispositionAllowed);
}

TEST_F(EffectiveDisposition, OfAProcessSendsTheTokenAndNoURL) {
    daemon_.answer(methods::kEffectiveDispositionOfProcess, 2, std::nullopt, 0);
    daemon_.start();
    EXPECT_TRUE(
        manager()->getEffectiveDisposition(&disposition_, &constraint_, someToken(), 8, job_, configuration_, 501));
    EXPECT_EQ(disposition_, 2);
    EXPECT_EQ(daemon_.onlyRequest().token, someToken());
}

TEST_F(EffectiveDisposition, WithoutADaemonLogsTheFailureTwice) {
    EXPECT_FALSE(ask());
    const auto lines = errors();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_TRUE(lines[0].starts_with("KSWManager: connection failed, "));
    EXPECT_TRUE(lines[1].starts_with("getEffectiveDisposition: error: Error Domain=KSWConnectionErrorDomain"));
}

class CanLaunch : public ClientTest {
protected:
    bool ask(bool verdict, std::int64_t code) {
        ScriptedDaemon daemon;
        daemon.answer(methods::kCanLaunchItem, verdict, code);
        daemon.start();
        const bool answer = manager()->canLaunchItemWithAppURL(app_, 8, job_, configuration_);
        EXPECT_EQ(daemon.onlyRequest().uid, ::getuid());
        return answer;
    }
};

TEST_F(CanLaunch, AnsweredTrueWithSuccessIsTrueAndLogsNothing) {
    EXPECT_TRUE(ask(true, 0));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(CanLaunch, AnsweredFalseWithACodeIsFalseAndLogsTheError) {
    EXPECT_FALSE(ask(false, -97));
    EXPECT_THAT(errors(),
                ElementsAre("-[KSWManager canLaunchItemWithAppURL:type:relativeURL:configuration:]: error: " +
                            std::string(kPermissionDenied)));
}

TEST_F(CanLaunch, AnsweredTrueWithACodeIsTrueAndLogsTheError) {
    EXPECT_TRUE(ask(true, -97));
    EXPECT_EQ(errors().size(), 1U);
}

TEST_F(CanLaunch, IsFalseWithoutADaemonAndLogsTheFailureTwice) {
    EXPECT_FALSE(manager()->canLaunchItemWithAppURL(app_, 8, job_, configuration_));
    const auto lines = errors();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_TRUE(lines[0].starts_with("KSWManager: connection failed, "));
    EXPECT_TRUE(lines[1].starts_with(
        "-[KSWManager canLaunchItemWithAppURL:type:relativeURL:configuration:]: error: Error Domain="));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager.canLaunchItemWithAppURL");
}

class StoredDisposition : public ClientTest {};

TEST_F(StoredDisposition, IsWrittenOnSuccess) {
    ScriptedDaemon daemon;
    daemon.answer(methods::kItemDisposition, 0xB, 0);
    daemon.start();
    std::int64_t disposition = 77;
    EXPECT_TRUE(manager()->getItemDisposition(&disposition, app_, 8, job_, configuration_, 501));
    EXPECT_EQ(disposition, 0xB);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(StoredDisposition, IsLeftAsItWasAfterAnError) {
    ScriptedDaemon daemon;
    daemon.answer(methods::kItemDisposition, 0xB, -95);
    daemon.start();
    std::int64_t disposition = 77;
    EXPECT_FALSE(manager()->getItemDisposition(&disposition, app_, 8, job_, configuration_, 501));
    EXPECT_EQ(disposition, 77);
    EXPECT_THAT(
        errors(),
        ElementsAre("-[KSWManager getItemDisposition:withAppURL:type:relativeURL:configuration:uid:]: error: "
                    "Error Domain=KSWErrorDomain Code=-95 \"record not found\""));
}

TEST_F(StoredDisposition, WithoutADaemonLogsTheConnectionsErrorAndItsOwn) {
    std::int64_t disposition = 77;
    EXPECT_FALSE(manager()->getItemDisposition(&disposition, app_, 8, job_, configuration_, 501));
    EXPECT_EQ(disposition, 77);
    const auto lines = errors();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_TRUE(lines[0].starts_with("KSWManager: connection failed, "));
    EXPECT_TRUE(lines[1].starts_with(
        "-[KSWManager getItemDisposition:withAppURL:type:relativeURL:configuration:uid:]: error: Error Domain="));
    EXPECT_EQ(log_.lines().at(0).activity, "KSWManager.getItemDisposition");
}

/// Registers and unregisters a launch item at a daemon that answers `code`.
class ALaunchItem : public ClientTest {
protected:
    using MaybeToken = std::optional<AuditToken>;
    using MaybeURL = std::optional<URL>;

    void answer(std::int64_t code) {
        daemon_.on(
            methods::kRegisterLaunchItem,
            [this, code](const ipc::RequestContext&, ipc::Responder<std::int64_t> responder, MaybeToken token,
                         MaybeURL parent, std::int64_t type, MaybeURL relative,
                         std::optional<Dictionary> configuration, Uid uid) {
                daemon_.keep({token, std::move(parent), type, std::move(relative), std::move(configuration), uid});
                responder.answer(code);
            });
        daemon_.on(methods::kUnregisterLaunchItem,
                   [this, code](const ipc::RequestContext&, ipc::Responder<std::int64_t> responder,
                                MaybeToken token, MaybeURL parent, std::int64_t type, MaybeURL relative, Uid uid) {
                       daemon_.keep({token, std::move(parent), type, std::move(relative), std::nullopt, uid});
                       responder.answer(code);
                   });
        daemon_.start();
    }
    void expectError(const std::string& operation) {
        EXPECT_THAT(errors(),
                    ElementsAre("-[KSWManager " + operation + "]_reply: error: " + std::string(kPermissionDenied)));
    }

    ScriptedDaemon daemon_;
};

TEST_F(ALaunchItem, IsRegisteredByItsBundleWithoutAToken) {
    answer(0);
    EXPECT_TRUE(manager()->registerLaunchItemWithBundleURL(app_, 8, job_, configuration_, 501));
    const SeenRequest seen = daemon_.onlyRequest();
    EXPECT_EQ(seen.token, std::nullopt);
    EXPECT_EQ(seen.bundle, app_);
    EXPECT_EQ(seen.relative, job_);
    EXPECT_EQ(seen.configuration, configuration_);
    EXPECT_EQ(seen.uid, 501U);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ALaunchItem, IsRegisteredByAProcessWithoutAURL) {
    answer(0);
    EXPECT_TRUE(manager()->registerLaunchItemWithAuditToken(someToken(), 8, job_, configuration_, 501));
    EXPECT_EQ(daemon_.onlyRequest().token, someToken());
    EXPECT_EQ(daemon_.onlyRequest().bundle, std::nullopt);
}

TEST_F(ALaunchItem, IsRegisteredForTheCallersRealUserWhenNoneIsNamed) {
    answer(0);
    EXPECT_TRUE(manager()->registerLaunchItemWithAuditToken(someToken(), 8, job_, configuration_));
    EXPECT_EQ(daemon_.onlyRequest().uid, ::getuid());
}

TEST_F(ALaunchItem, IsUnregisteredByItsBundleWithoutAToken) {
    answer(0);
    EXPECT_TRUE(manager()->unregisterLaunchItemWithBundleURL(app_, 8, job_, 501));
    EXPECT_EQ(daemon_.onlyRequest().token, std::nullopt);
    EXPECT_EQ(daemon_.onlyRequest().bundle, app_);
}

TEST_F(ALaunchItem, IsUnregisteredForTheCallersRealUserWhenNoneIsNamed) {
    answer(0);
    EXPECT_TRUE(manager()->unregisterLaunchItemWithAuditToken(someToken(), 8, job_));
    EXPECT_EQ(daemon_.onlyRequest().token, someToken());
    EXPECT_EQ(daemon_.onlyRequest().bundle, std::nullopt);
    EXPECT_EQ(daemon_.onlyRequest().uid, ::getuid());
}

TEST_F(ALaunchItem, ThatMayNotBeRegisteredByItsBundleIsLogged) {
    answer(-97);
    EXPECT_FALSE(manager()->registerLaunchItemWithBundleURL(app_, 8, job_, configuration_, 501));
    expectError("registerLaunchItemWithBundleURL:type:relativeURL:configuration:uid:");
}

TEST_F(ALaunchItem, ThatMayNotBeRegisteredByAProcessIsLogged) {
    answer(-97);
    EXPECT_FALSE(manager()->registerLaunchItemWithAuditToken(someToken(), 8, job_, configuration_, 501));
    expectError("registerLaunchItemWithAuditToken:type:relativeURL:configuration:uid:");
}

TEST_F(ALaunchItem, ThatMayNotBeUnregisteredIsLogged) {
    answer(-97);
    EXPECT_FALSE(manager()->unregisterLaunchItemWithBundleURL(app_, 8, job_, 501));
    expectError("unregisterLaunchItemWithBundleURL:type:relativeURL:uid:");
    log_.clear();
    EXPECT_FALSE(manager()->unregisterLaunchItemWithAuditToken(someToken(), 8, job_, 501));
    expectError("unregisterLaunchItemWithAuditToken:type:relativeURL:uid:");
}

TEST_F(ALaunchItem, KnowsSuccessAsZeroOnly) {
    answer(-96);
    EXPECT_FALSE(manager()->registerLaunchItemWithBundleURL(app_, 8, job_, configuration_, 501));
}

class AnInvalidation : public ClientTest {
protected:
    std::shared_ptr<KSWItem> ask(std::int64_t code, const std::shared_ptr<KSWItem>& item) {
        ScriptedDaemon daemon;
        daemon.answer(methods::kInvalidateLaunchItem, KSWFetchResult::resultWithCode(code, item));
        daemon.start();
        return manager()->invalidateLaunchItemWithBundleURL(app_, 8, job_, configuration_, 501);
    }
};

TEST_F(AnInvalidation, AnswersTheItem) {
    const auto item = ask(0, someItem());
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->identifier(), "8.com.example.agent");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AnInvalidation, LogsAnotherCodeAsTextAndStillAnswersTheItem) {
    EXPECT_NE(ask(-93, someItem()), nullptr);
    EXPECT_THAT(
        errors(),
        ElementsAre(
            "-[KSWManager invalidateLaunchItemWithBundleURL:type:itemURL:configuration:uid:]: error: record "
            "updated"));
}

TEST_F(AnInvalidation, OfAnUnknownItemAnswersNone) {
    EXPECT_EQ(ask(-95, nullptr), nullptr);
    EXPECT_EQ(errors().size(), 1U);
}

}  // namespace
}  // namespace ksw::test
