// Developers: how approvals and prohibitions hold for what they make, and what another's code makes of them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/servers/kestrelwoodd/signed_items.h"

namespace ksw::daemon::test {
namespace {

constexpr KSWDisposition kLaunchable = KSWDispositionEnabled | KSWDispositionAllowed;

TEST_F(ASignedItem, WhoseCodeIsAnothersNowHangsUnderThatOneAndWaitsForApprovalAnew) {
    const std::string path = program("tool");
    const Answer first = enterDaemon("my.daemon", path);
    daemon_.allow(kEveryUser, "16.my.daemon");
    ASSERT_EQ(daemon_.record(kEveryUser, "16.my.daemon")->disposition(), kLaunchable);
    replace(path, "Other Works");
    const Answer second = enterDaemon("my.daemon", path);
    EXPECT_EQ(second.code, KSWErrorRecordUpdated);
    EXPECT_EQ(second.item->uuid(), first.item->uuid());
    EXPECT_EQ(second.item->generation(), 1);
    for (int start = 0; start < 2; ++start) {
        const ItemPointer record = daemon_.record(kEveryUser, "16.my.daemon");
        EXPECT_EQ(record->container()->identifier(), "Other Works");
        EXPECT_EQ(record->developerName(), "Other Works");
        EXPECT_EQ(record->disposition(), KSWDispositionEnabled);
        EXPECT_EQ(daemon_.record(kEveryUser, "Example Org"), nullptr);
        daemon_.restart();
    }
}

TEST_F(ASignedItem, WhoseCodeIsNobodysNowWaitsForApprovalAnew) {
    const std::string path = program("tool");
    enterDaemon("my.daemon", path);
    daemon_.allow(kEveryUser, "16.my.daemon");
    replace(path, std::nullopt);
    const Answer answer = enterDaemon("my.daemon", path);
    EXPECT_EQ(developerOf(answer), "Unknown Developer");
    EXPECT_EQ(answer.item->disposition(), KSWDispositionEnabled);
}

TEST_F(ASignedItem, InAnotherVersionOfTheSameDeveloperKeepsItsApproval) {
    const std::string path = program("tool");
    enterDaemon("my.daemon", path);
    daemon_.allow(kEveryUser, "16.my.daemon");
    const std::string next = copyOf("/bin/false", "next");
    signBy(signerOf("Example Org"), next);
    std::filesystem::rename(next, path);
    const Answer answer = enterDaemon("my.daemon", path);
    EXPECT_EQ(developerOf(answer), "Example Org");
    EXPECT_EQ(answer.item->disposition(), kLaunchable);
}

TEST_F(ASignedItem, ThatWasForbiddenIsSoUnderAnotherDeveloperToo) {
    const std::string path = program("tool");
    enterAgent("my.agent", path);
    setAllowed(agent("my.agent"), false);
    for (const std::optional<std::string>& organization : {std::optional<std::string>("Other Works"), {}}) {
        replace(path, organization);
        EXPECT_EQ(enterAgent("my.agent", path).item->disposition(), KSWDispositionEnabled);
    }
}

TEST_F(ASignedItem, WhoseDeveloperWasForbiddenIsSoUnderAnotherToo) {
    const std::string path = program("tool");
    enterAgent("my.agent", path);
    setAllowed(developer("Example Org"), false);
    replace(path, "Other Works");
    EXPECT_EQ(enterAgent("my.agent", path).item->disposition(), KSWDispositionEnabled);
}

TEST_F(ASignedItem, ThatWasDisabledIsSoUnderAnotherDeveloperToo) {
    const std::string path = program("tool");
    enterAgent("my.agent", path);
    const ItemPointer disabled = copyOfRecord(*agent("my.agent"));
    disabled->setEnabled(false);
    disabled->setNotified(true);
    ASSERT_EQ(requests_.update(owner_, disabled, owner_.uid).code, KSWErrorRecordUpdated);
    replace(path, "Other Works");
    EXPECT_EQ(enterAgent("my.agent", path).item->disposition(), KSWDispositionAllowed);
}

TEST_F(ASignedItem, LeavesItsFormerDeveloperWithHisOthers) {
    const std::string path = program("tool");
    enterAgent("my.agent", path);
    enterAgent("another", program("another"));
    replace(path, "Other Works");
    enterAgent("my.agent", path);
    for (int start = 0; start < 2; ++start) {
        EXPECT_EQ(developer("Example Org")->countOfEmbeddedItems(), 1U);
        EXPECT_EQ(agent("another")->container(), developer("Example Org"));
        EXPECT_EQ(agent("my.agent")->container(), developer("Other Works"));
        daemon_.restart();
    }
}

TEST_F(ASignedItem, IsMovedByARefreshWithoutAConfiguration) {
    const std::string path = program("tool");
    enterAgent("my.agent", path);
    replace(path, "Other Works");
    daemon_.writeJob("job.plist", "my.agent");
    const Answer answer = daemon_.ask(&Operations::refresh, owner_, kLegacyAgent, kNoURL,
                                      URL::fileURL(daemon_.folder().at("job.plist")), kNoConfiguration, owner_.uid);
    EXPECT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(developerOf(answer), "Other Works");
}

TEST_F(ASignedItem, OfADeveloperWhoIsForbiddenMayNotLaunch) {
    const std::string path = program("tool");
    enterAgent("my.agent", path);
    setAllowed(developer("Example Org"), false);
    EXPECT_EQ(askOfAgent(&Operations::effectiveDisposition, "my.agent", path).disposition, KSWDispositionEnabled);
    EXPECT_EQ(askOfAgent(&Operations::effectiveDisposition, "not.recorded", program("next")).disposition,
              KSWDispositionEnabled);
    EXPECT_EQ(agent("not.recorded"), nullptr);
    EXPECT_EQ(developer("Example Org")->countOfEmbeddedItems(), 1U);
}

TEST_F(ASignedItem, ThatIsADaemonMayLaunchBesideAnAllowedOneOfItsDeveloper) {
    enterDaemon("first", program("first"));
    EXPECT_EQ(enterDaemon("second", program("second")).item->disposition(), KSWDispositionEnabled);
    daemon_.allow(kEveryUser, "16.first");
    daemon_.allow(kEveryUser, "16.second");
    EXPECT_EQ(enterDaemon("third", program("third")).item->disposition(), kLaunchable);
    EXPECT_EQ(enterDaemon("anothers", program("anothers", "Other Works")).item->disposition(),
              KSWDispositionEnabled);
}

TEST_F(ASignedItem, TheLastTakesItsDeveloperAlongUnlessHeIsForbidden) {
    const std::string path = program("tool");
    enterAgent("my.agent", path);
    EXPECT_EQ(requests_.remove(owner_, "8.my.agent", owner_.uid).code, KSWErrorNone);
    EXPECT_EQ(developer("Example Org"), nullptr);
    enterAgent("my.agent", path);
    setAllowed(developer("Example Org"), false);
    EXPECT_EQ(requests_.remove(owner_, "8.my.agent", owner_.uid).code, KSWErrorNone);
    daemon_.restart();
    ASSERT_NE(developer("Example Org"), nullptr);
    enterAgent("my.agent", path);
    EXPECT_FALSE(
        KSWDispositionIsLaunchable(askOfAgent(&Operations::effectiveDisposition, "my.agent", path).disposition));
}

TEST_F(ASignedItem, OfADeveloperWhoseRecordIsDamagedIsNotEntered) {
    enterAgent("my.agent", program("tool"));
    daemon_.damage("UPDATE items SET record = x'00' WHERE identifier = 'Example Org'");
    const std::string next = program("next");
    EXPECT_EQ(enterAgent("next", next).code, KSWErrorGeneric);
    EXPECT_EQ(askOfAgent(&Operations::effectiveDisposition, "next", next).code, KSWErrorGeneric);
}

}  // namespace
}  // namespace ksw::daemon::test
