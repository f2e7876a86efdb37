// Items of applications: the records of those, whom they hang under, and how approvals hold for what lies in them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/host/log_capture.h"
#include "tests/servers/kestrelwoodd/signed_items.h"

namespace ksw::daemon::test {
namespace {

constexpr KSWDisposition kLaunchable = KSWDispositionEnabled | KSWDispositionAllowed;
constexpr const char* kApp = "2.com.example.tool";

/// A signed application with a signed helper in it.
class AnItemInAnApplication : public ASignedItem {
protected:
    AnItemInAnApplication() {
        signBy(signerOf("Example Org"), app_);
        helper("helper");
    }

    std::string helper(const std::string& name, const std::optional<std::string>& organization = "Example Org") {
        std::string inside = "Contents/Linux/" + name;
        std::filesystem::rename(program(name, organization), app_ + "/" + inside);
        return inside;
    }
    Answer ask(Operations::Operation operation, KSWItemType type, const std::string& label,
               const std::string& executable = "Contents/Linux/helper") {
        const bool isDaemon = type == KSWItemTypeDaemon;
        return daemon_.ask(operation, isDaemon ? kRoot : owner_, type, URL::fileURL(app_),
                           URL::fileURL("Contents/Jobs/" + label + ".plist"), job(label, executable),
                           isDaemon ? 0 : owner_.uid);
    }
    Answer enter(const std::string& label, KSWItemType type = KSWItemTypeAgent) {
        return ask(&Operations::enter, type, label);
    }
    bool mayLaunch(const std::string& label, KSWItemType type = KSWItemTypeAgent) {
        return KSWDispositionIsLaunchable(ask(&Operations::effectiveDisposition, type, label).disposition);
    }
    ItemPointer record(std::string_view identifier) { return daemon_.record(owner_.uid, identifier); }

    const std::string app_ = facts::makeApplication(files_, "My.app", "com.example.bundle");
};

TEST_F(AnItemInAnApplication, HangsUnderThatAndThatUnderItsDeveloper) {
    const Answer answer = enter("my.agent");
    ASSERT_EQ(answer.code, KSWErrorNone);
    ASSERT_EQ(answer.changes.size(), 1U);
    EXPECT_EQ(answer.changes[0].type,
              static_cast<std::int64_t>(KSWItemTypeAgent | KSWItemTypeDeveloper | KSWItemTypeApp));
    for (int start = 0; start < 2; ++start) {
        const ItemPointer item = record("8.my.agent");
        EXPECT_EQ(item->executablePath(), "Contents/Linux/helper");
        EXPECT_NE(item->executableModificationDate(), 0);
        EXPECT_EQ(item->name(), "helper");
        EXPECT_EQ(item->teamIdentifier(), "TEAM000001");
        EXPECT_EQ(item->developerName(), "Example Org");
        EXPECT_EQ(item->fullPath(), app_ + "/Contents/Jobs/my.agent.plist");
        const ItemPointer application = item->container();
        EXPECT_EQ(application, record(kApp));
        EXPECT_EQ(application->url(), URL::fileURL(app_, PathKind::Directory));
        EXPECT_EQ(application->name(), "My");
        EXPECT_EQ(application->bundleIdentifier(), "com.example.bundle");
        EXPECT_EQ(application->disposition(), kLaunchable);
        EXPECT_TRUE(application->bookmark().has_value());
        EXPECT_EQ(application->container(), developer("Example Org"));
        EXPECT_EQ(developer("Example Org")->countOfEmbeddedItems(), 1U);
        daemon_.restart();
    }
}

TEST_F(AnItemInAnApplication, HasAPlaceSoThatNothingIsLoggedWhenItIsJudged) {
    const host::LogCapture log;
    EXPECT_TRUE(mayLaunch("my.agent"));
    EXPECT_FALSE(mayLaunch("my.daemon", KSWItemTypeDaemon));
    enter("my.agent");
    enter("my.daemon", KSWItemTypeDaemon);
    EXPECT_TRUE(mayLaunch("my.agent"));
    EXPECT_FALSE(mayLaunch("my.daemon", KSWItemTypeDaemon));
    EXPECT_THAT(log.at(host::LogLevel::Error), testing::IsEmpty());
}

TEST_F(AnItemInAnApplication, SharesItWithTheOthersThere) {
    for (const char* label : {"first", "second", "third"}) {
        ASSERT_EQ(enter(label).code, KSWErrorNone);
    }
    EXPECT_EQ(enter("first").code, KSWErrorRecordExists);
    EXPECT_EQ(record("8.first")->container(), record("8.third")->container());
    EXPECT_EQ(record(kApp)->countOfEmbeddedItems(), 3U);
    EXPECT_EQ(record(kApp)->generation(), 0);
}

TEST_F(AnItemInAnApplication, IsAllowedOrNotWithItsDeveloper) {
    enter("my.agent");
    enterAgent("beside", program("beside"));
    setAllowed(developer("Example Org"), false);
    EXPECT_FALSE(record(kApp)->isAllowed());
    EXPECT_EQ(record(kApp)->generation(), 1);
    EXPECT_FALSE(mayLaunch("my.agent"));
    EXPECT_FALSE(mayLaunch("next"));
    EXPECT_TRUE(agent("beside")->isAllowed());
    daemon_.restart();
    EXPECT_FALSE(mayLaunch("my.agent"));
    setAllowed(developer("Example Org"), true);
    EXPECT_TRUE(mayLaunch("my.agent"));
    EXPECT_TRUE(mayLaunch("next"));
}

TEST_F(AnItemInAnApplication, IsAsItsApplicationIsInASetOfUpdatesThatNamesBoth) {
    enter("my.agent");
    const ItemPointer maker = copyOfRecord(*developer("Example Org"));
    maker->setAllowed(false);
    const ItemPointer application = copyOfRecord(*record(kApp));
    application->setName("Renamed");
    ASSERT_EQ(requests_.updateSet(owner_, std::vector<ItemPointer>{maker, application}, owner_.uid).code,
              KSWErrorRecordUpdated);
    EXPECT_TRUE(record(kApp)->isAllowed());
    EXPECT_EQ(record(kApp)->name(), "Renamed");
    EXPECT_EQ(record(kApp)->generation(), 1);
}

TEST_F(AnItemInAnApplication, OfADeveloperWhoIsForbiddenMayNotLaunch) {
    enterAgent("beside", program("beside"));
    setAllowed(developer("Example Org"), false);
    EXPECT_FALSE(mayLaunch("my.agent"));
    enter("my.agent");
    EXPECT_FALSE(mayLaunch("my.agent"));
    enterBundle(KSWItemTypeApp, app_);
    EXPECT_FALSE(mayLaunch("my.agent"));
}

TEST_F(AnItemInAnApplication, ThatIsADaemonMayLaunchBesideAnAllowedOneThere) {
    enter("first", KSWItemTypeDaemon);
    EXPECT_FALSE(mayLaunch("first", KSWItemTypeDaemon));
    daemon_.allow(kEveryUser, "16.first");
    EXPECT_EQ(enter("second", KSWItemTypeDaemon).item->disposition(), kLaunchable);
    helper("strange", "Other Works");
    EXPECT_EQ(ask(&Operations::enter, KSWItemTypeDaemon, "third", "Contents/Linux/strange").item->disposition(),
              KSWDispositionEnabled);
}

TEST_F(AnItemInAnApplication, ThatNobodySignedHangsUnderItsPlace) {
    facts::makeApplication(files_, "Plain.app", "com.example.plain");
    const auto enterPlain = [this](const std::string& label, KSWItemType type) {
        return daemon_.ask(&Operations::enter, kRoot, type, URL::fileURL(files_.at("Plain.app")),
                           URL::fileURL("Contents/" + label + ".plist"), job(label, "Contents/Linux/main"),
                           owner_.uid);
    };
    const Answer answer = enterPlain("my.agent", KSWItemTypeAgent);
    ASSERT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(answer.item->container()->identifier(),
              "2." + URL::fileURL(files_.at("Plain.app"), PathKind::Directory).absoluteString());
    EXPECT_EQ(answer.item->container()->container()->identifier(), "Unknown Developer");
    EXPECT_EQ(answer.item->disposition(), kLaunchable);
    // Whoever can write there can put another daemon beside the one that was allowed.
    enterPlain("first", KSWItemTypeDaemon);
    daemon_.allow(kEveryUser, "16.first");
    EXPECT_EQ(enterPlain("second", KSWItemTypeDaemon).item->disposition(), KSWDispositionEnabled);
}

TEST_F(AnItemInAnApplication, TheLastTakesItAlong) {
    enter("first");
    enter("second");
    EXPECT_EQ(requests_.remove(owner_, "8.first", owner_.uid).code, KSWErrorNone);
    EXPECT_EQ(record(kApp)->countOfEmbeddedItems(), 1U);
    const Answer answer = requests_.remove(owner_, "8.second", owner_.uid);
    EXPECT_EQ(answer.code, KSWErrorNone);
    for (int start = 0; start < 2; ++start) {
        EXPECT_TRUE(requests_.list(owner_, KSWItemTypeAll, owner_.uid).items.empty());
        daemon_.restart();
    }
}

TEST_F(AnItemInAnApplication, TheLastLeavesItWhenItIsForbiddenOrWasRegisteredItself) {
    enter("my.agent");
    setAllowed(record(kApp), false);
    EXPECT_EQ(requests_.remove(owner_, "8.my.agent", owner_.uid).code, KSWErrorNone);
    ASSERT_NE(record(kApp), nullptr);
    EXPECT_FALSE(mayLaunch("my.agent"));
    enter("my.agent");
    setAllowed(record(kApp), true);
    const Answer answer = enterBundle(KSWItemTypeApp, app_);
    EXPECT_EQ(answer.code, KSWErrorRecordUpdated);
    EXPECT_EQ(enterBundle(KSWItemTypeApp, app_).code, KSWErrorRecordExists);
    EXPECT_EQ(enter("my.agent").code, KSWErrorRecordExists);
    EXPECT_EQ(requests_.remove(owner_, "8.my.agent", owner_.uid).code, KSWErrorNone);
    EXPECT_NE(record(kApp), nullptr);
    EXPECT_EQ(requests_.remove(owner_, kApp, owner_.uid).code, KSWErrorNone);
    EXPECT_EQ(developer("Example Org"), nullptr);
}

TEST_F(AnItemInAnApplication, TheLastLeavesItWhenItWasAddedItself) {
    enter("my.agent");
    const ItemPointer added = KSWItem::itemWithType(KSWItemTypeApp, URL::fileURL(app_, PathKind::Directory));
    ASSERT_NE(added, nullptr);
    EXPECT_EQ(requests_.add(owner_, added, owner_.uid).code, KSWErrorRecordExists);
    EXPECT_EQ(requests_.remove(owner_, "8.my.agent", owner_.uid).code, KSWErrorNone);
    EXPECT_NE(record(kApp), nullptr);
}

TEST_F(AnItemInAnApplication, ThatIsAddedHangsUnderItToo) {
    const ItemPointer item = KSWItem::initWithType(KSWItemTypeAgent, "8.my.agent");
    item->setUrl(URL::fileURL("Contents/my.plist", URL::fileURL(app_, PathKind::Directory)));
    item->setExecutablePath("Contents/Linux/helper");
    item->setDisposition(kLaunchable);
    ASSERT_EQ(requests_.add(owner_, item, owner_.uid).code, KSWErrorNone);
    EXPECT_EQ(record("8.my.agent")->container(), record(kApp));
    EXPECT_EQ(record("8.my.agent")->developerName(), "Example Org");
    EXPECT_TRUE(mayLaunch("my.agent"));
}

TEST_F(AnItemInAnApplication, LeavesItWhenItIsRegisteredOutsideAndKeepsItsApproval) {
    enter("my.agent");
    enter("another");
    setAllowed(record("8.my.agent"), false);
    const Answer answer = enterAgent("my.agent", program("tool"));
    EXPECT_EQ(answer.code, KSWErrorRecordUpdated);
    EXPECT_EQ(answer.item->container(), developer("Example Org"));
    EXPECT_FALSE(answer.item->isAllowed());
    EXPECT_EQ(developer("Example Org")->countOfEmbeddedItems(), 2U);
    EXPECT_EQ(record(kApp)->countOfEmbeddedItems(), 1U);
    enter("my.agent");
    EXPECT_EQ(record("8.my.agent")->container(), record(kApp));
    EXPECT_EQ(developer("Example Org")->countOfEmbeddedItems(), 1U);
    enterAgent("my.agent", files_.at("tool"));
    enterAgent("another", files_.at("tool"));
    for (int start = 0; start < 2; ++start) {
        EXPECT_EQ(record(kApp), nullptr);
        EXPECT_EQ(developer("Example Org")->countOfEmbeddedItems(), 2U);
        daemon_.restart();
    }
}

TEST_F(AnItemInAnApplication, WhoseApplicationIsAnothersNowMovesWithIt) {
    enter("my.agent");
    signBy(signerOf("Other Works"), app_);
    EXPECT_EQ(enter("my.agent").code, KSWErrorRecordExists);
    for (int start = 0; start < 2; ++start) {
        EXPECT_EQ(record(kApp)->container()->identifier(), "Other Works");
        EXPECT_EQ(record("8.my.agent")->container(), record(kApp));
        EXPECT_EQ(record("8.my.agent")->developerName(), "Example Org");
        EXPECT_EQ(developer("Example Org"), nullptr);
        daemon_.restart();
    }
}

TEST_F(AnItemInAnApplication, WhoseCodeIsAnothersNowWaitsForApprovalAnewWhereItIs) {
    enter("my.daemon", KSWItemTypeDaemon);
    daemon_.allow(kEveryUser, "16.my.daemon");
    ASSERT_TRUE(mayLaunch("my.daemon", KSWItemTypeDaemon));
    helper("helper", std::nullopt);
    const Answer answer = enter("my.daemon", KSWItemTypeDaemon);
    EXPECT_EQ(answer.code, KSWErrorRecordUpdated);
    EXPECT_EQ(answer.item->container()->identifier(), kApp);
    EXPECT_EQ(answer.item->developerName(), "");
    EXPECT_EQ(answer.item->disposition(), KSWDispositionEnabled);
}

TEST_F(AnItemInAnApplication, GivenOtherCodeByAClientWaitsForApprovalAnewToo) {
    enter("my.daemon", KSWItemTypeDaemon);
    daemon_.allow(kEveryUser, "16.my.daemon");
    helper("strange", "Other Works");
    const ItemPointer changed = copyOfRecord(*daemon_.record(kEveryUser, "16.my.daemon"));
    changed->setExecutablePath("Contents/Linux/strange");
    ASSERT_EQ(requests_.update(kRoot, changed, kEveryUser).code, KSWErrorRecordUpdated);
    const ItemPointer record = daemon_.record(kEveryUser, "16.my.daemon");
    EXPECT_EQ(record->container()->identifier(), kApp);
    EXPECT_EQ(record->developerName(), "Other Works");
    EXPECT_EQ(record->disposition(), KSWDispositionEnabled);
}

TEST_F(AnItemInAnApplication, ThatLiesOutsideOfItIsRefused) {
    daemon_.writeJob("outside.plist", "outside");
    for (const char* place : {"../outside.plist", "Contents/../../outside.plist"}) {
        const Answer answer = daemon_.ask(&Operations::enter, kRoot, KSWItemTypeAgent, URL::fileURL(app_),
                                          URL::fileURL(place), job("my.agent", "Contents/Linux/helper"), 0);
        EXPECT_EQ(answer.code, KSWErrorInvalidParameter) << place;
    }
    const host::LogCapture log;
    const Answer answer = ask(&Operations::enter, KSWItemTypeAgent, "my.agent", "../tool");
    EXPECT_EQ(answer.item->executablePath(), std::nullopt);
    EXPECT_THAT(log.at(host::LogLevel::Error),
                testing::ElementsAre(testing::StartsWith("-[KSWItem setPropertiesWithKSWConfig:]: the program lies "
                                                         "outside of its application: path=../tool, item=uuid=")));
}

TEST_F(AnItemInAnApplication, OfADamagedRecordIsNotEntered) {
    enter("my.agent");
    daemon_.damage("UPDATE items SET record = x'00' WHERE identifier = '2.com.example.tool'");
    EXPECT_EQ(enter("my.agent").code, KSWErrorGeneric);
    EXPECT_EQ(enter("next").code, KSWErrorGeneric);
    EXPECT_EQ(ask(&Operations::effectiveDisposition, KSWItemTypeAgent, "next").code, KSWErrorGeneric);
}

TEST_F(AnItemInAnApplication, ThatAJobNamesAndThatVouchesForItIsTheJobs) {
    const std::string tool = program("tool");
    facts::makeApplication(host_.folder(), "Applications/Vouching.app", "com.example.vouching");
    signBy(signerOf("Example Org"), host_.folder().at("Applications/Vouching.app"));
    ASSERT_EQ(chmod(host_.folder().path().c_str(), 0755), 0);
    Dictionary claiming = job("my.agent", tool);
    claiming[std::string(KSWConfigBundleIdentifiers)] = Array{"com.example.missing", "com.example.vouching"};
    const auto enterIt = [&] {
        return daemon_.ask(&Operations::enter, owner_, kLegacyAgent, kNoURL, jobURL("my.agent"), claiming,
                           owner_.uid);
    };
    const host::LogCapture log;
    const Answer answer = enterIt();
    ASSERT_EQ(answer.code, KSWErrorNone);
    EXPECT_THAT(log.at(host::LogLevel::Info),
                testing::Contains("-[KSWItem setPropertiesWithKSWConfig:]: no Almanac record for bundle identifier "
                                  "'com.example.missing"));
    EXPECT_EQ(answer.item->container()->url(),
              URL::fileURL(host_.folder().at("Applications/Vouching.app"), PathKind::Directory));
    EXPECT_EQ(answer.item->container()->container()->identifier(), "Example Org");
    EXPECT_THAT(*answer.item->associatedBundleIdentifiers(),
                testing::ElementsAre("com.example.missing", "com.example.vouching"));
    replace(tool, std::nullopt);
    EXPECT_EQ(enterIt().item->container()->identifier(), "Unknown Developer");
    EXPECT_THAT(log.at(host::LogLevel::Error),
                testing::ElementsAre(testing::StartsWith(
                    "Bundle identifiers from steward plist ignored because the executable doesn't have a Team ID. "
                    "Item=uuid=")));
    EXPECT_EQ(developer("Example Org"), nullptr);
}

}  // namespace
}  // namespace ksw::daemon::test
