#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/base/limits.h"
#include "tests/servers/kestrelwoodd/daemon_inside.h"

namespace ksw::daemon::test {
namespace {

/// What every operation must refuse; only removing answers that it does not know an item without identifier.
class AnInvalidRequest : public testing::Test {
protected:
    void expectRefused(KSWItemType type, const std::optional<URL>& bundle, const std::optional<URL>& url,
                       const std::optional<Dictionary>& configuration, Uid uid = anOwner().uid) {
        for (const Operations::Operation operation :
             {&Operations::enter, &Operations::enterQuietly, &Operations::fetch, &Operations::storedDisposition,
              &Operations::effectiveDisposition}) {
            const Answer answer = daemon_.ask(operation, kRoot, type, bundle, url, configuration, uid);
            EXPECT_EQ(answer.code, KSWErrorInvalidParameter);
            EXPECT_EQ(answer.item, nullptr);
            EXPECT_EQ(answer.disposition, 0U);
        }
        EXPECT_TRUE(daemon_.operations().users(kRoot).empty());
    }
    void expectRefused(const Dictionary& configuration) {
        expectRefused(kLegacyAgent, kNoURL, jobURL("my.agent"), configuration);
    }

    DaemonInside daemon_;
};

TEST_F(AnInvalidRequest, NamesNoKindOrSeveral) {
    const Dictionary job = jobNamed("my.agent");
    for (const KSWItemType type : {KSWItemType{0}, KSWItemTypeLegacyBit, KSWItemTypeAll, KSWItemTypeDeveloper,
                                   kLegacyAgent | KSWItemTypeDaemon, ~KSWItemType{0}, KSWItemType{0x40000}}) {
        expectRefused(type, kNoURL, jobURL("my.agent"), job);
    }
}

TEST_F(AnInvalidRequest, HasURLsThatDoNotSuitTheKind) {
    const Dictionary job = jobNamed("my.agent");
    const URL bundle = URL::fileURL("/opt/My.app");
    expectRefused(kLegacyAgent, bundle, jobURL("my.agent"), job);
    expectRefused(kLegacyAgent, kNoURL, kNoURL, job);
    expectRefused(KSWItemTypeAgent, kNoURL, URL::fileURL("Contents/my.plist"), job);
    expectRefused(KSWItemTypeAgent, bundle, jobURL("my.agent"), job);
}

TEST_F(AnInvalidRequest, IsForTheUserWhoIsNone) {
    expectRefused(kLegacyAgent, kNoURL, jobURL("my.agent"), jobNamed("my.agent"), kNoUser);
}

TEST_F(AnInvalidRequest, HasNoLabelAnywhere) {
    expectRefused(kLegacyAgent, kNoURL, jobURL("my.agent"), kNoConfiguration);
    expectRefused(Dictionary{});
    expectRefused(Dictionary{{std::string(KSWConfigLabel), Value("")}});
}

TEST_F(AnInvalidRequest, IsAboutAKindThatASignatureIdentifies) {
    const URL bundle = URL::fileURL("/opt/My.app");
    expectRefused(KSWItemTypeApp, bundle, kNoURL, kNoConfiguration);
    expectRefused(KSWItemTypeLoginItem, bundle, URL::fileURL("Contents/Helper.app"), kNoConfiguration);
    expectRefused(KSWItemTypeGlimpse, bundle, URL::fileURL("Contents/glimpse"), kNoConfiguration);
    expectRefused(KSWItemTypeSmartCard, kNoURL, URL::fileURL("/opt/driver"), kNoConfiguration);
}

TEST_F(AnInvalidRequest, IsAboutAUserItemThatIsNotThere) {
    expectRefused(KSWItemTypeUserItem, kNoURL, URL::fileURL("/nowhere/document"), kNoConfiguration);
    expectRefused(KSWItemTypeUserItem, kNoURL, URL::fromString("16.my.daemon"), kNoConfiguration);
}

TEST_F(AnInvalidRequest, HasAConfigurationWithAValueOfTheWrongType) {
    for (const std::string_view key :
         {KSWConfigLabel, KSWConfigExecutablePath, KSWConfigArguments, KSWConfigSHA256Checksum}) {
        Dictionary job = jobNamed("my.agent");
        job[std::string(key)] = Value(1);
        expectRefused(job);
    }
    Dictionary job = jobNamed("my.agent");
    job[std::string(KSWConfigArguments)] = Array{"tool", 1};
    expectRefused(job);
}

TEST_F(AnInvalidRequest, HasATextBeyondTheLimitOfAField) {
    for (const std::string_view key : {KSWConfigLabel, KSWConfigExecutablePath}) {
        Dictionary job = jobNamed("my.agent");
        job[std::string(key)] = std::string(limits::kFieldMax + 1, 'x');
        expectRefused(job);
    }
    Dictionary job = jobNamed("my.agent");
    job[std::string(KSWConfigArguments)] = Array{std::string(limits::kFieldMax + 1, 'x')};
    expectRefused(job);
}

TEST_F(AnInvalidRequest, NamesNoProcessWhereOneIsNeeded) {
    const std::optional<URL> url = jobURL("my.agent");
    const std::optional<Dictionary> job = jobNamed("my.agent");
    const Subject subject{Owner::Process, kNoToken, kNoURL, kLegacyAgent, url, job, 0};
    EXPECT_EQ(daemon_.operations().enter(subject, kRoot).code, KSWErrorInvalidParameter);
}

TEST_F(AnInvalidRequest, NamesAProcessAndABundle) {
    const std::optional<URL> bundle = URL::fileURL("/opt/My.app");
    const std::optional<URL> url = URL::fileURL("Contents/my.plist");
    const std::optional<Dictionary> job = jobNamed("my.agent");
    const std::optional<AuditToken> token = AuditToken{};
    const Subject subject{Owner::OneOfBoth, token, bundle, KSWItemTypeAgent, url, job, 0};
    EXPECT_EQ(daemon_.operations().enter(subject, kRoot).code, KSWErrorInvalidParameter);
}

TEST(ARegistration, TakesATextOfTheLargestSize) {
    DaemonInside daemon;
    Dictionary job = jobNamed("my.agent");
    job[std::string(KSWConfigExecutablePath)] = "/" + std::string(limits::kFieldMax - 1, 'x');
    const Answer answer = daemon.ask(&Operations::enter, kRoot, kLegacyAgent, kNoURL, jobURL("my.agent"), job, 0);
    EXPECT_EQ(answer.code, KSWErrorNone);
    daemon.restart();
    EXPECT_NE(daemon.record(0, "8.my.agent"), nullptr);
}

TEST(ARegistration, LeavesOutListsThatTogetherAreLargerThanAFieldMayBe) {
    DaemonInside daemon;
    Dictionary job = jobNamed("my.agent");
    const auto enter = [&](std::size_t each) {
        job[std::string(KSWConfigArguments)] = Array(2, Value(std::string(each, 'x')));
        return daemon.ask(&Operations::enter, kRoot, kLegacyAgent, kNoURL, jobURL("my.agent"), job, 0);
    };
    EXPECT_EQ(enter(limits::kFieldMax / 2).item->programArguments()->size(), 2U);
    const Answer answer = enter(limits::kFieldMax / 2 + 1);
    EXPECT_EQ(answer.code, KSWErrorRecordUpdated);
    EXPECT_EQ(answer.item->programArguments(), std::nullopt);
    EXPECT_EQ(answer.item->executablePath(), "/opt/tool");
    EXPECT_EQ(enter(limits::kFieldMax / 2 + 1).code, KSWErrorRecordExists);
}

}  // namespace
}  // namespace ksw::daemon::test
