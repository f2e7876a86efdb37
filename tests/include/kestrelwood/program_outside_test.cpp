// What a program can do that has only the exported headers and the shared library. Each operation is called once,
// so that one that is declared but not exported does not link.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <map>

#include <kestrelwood/kestrelwood.h>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct Special : KSWItem {};

struct Observer : KSWListObserver {
    void listDidChange(const std::shared_ptr<KSWList>&) override {}
};

/// A host without servers.
class AProgramOutside : public ::testing::Test {
protected:
    AProgramOutside() {
        std::string folder = testing::TempDir() + "kestrelwood-XXXXXX";
        EXPECT_NE(::mkdtemp(folder.data()), nullptr);
        root_ = folder;
        ::setenv("KESTRELWOOD_ROOT", folder.c_str(), 1);
    }
    ~AProgramOutside() override {
        ::unsetenv("KESTRELWOOD_ROOT");
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }

    std::filesystem::path root_;
};

TEST_F(AProgramOutside, HasTheWordsForKindsFlagsAndDispositions) {
    EXPECT_EQ(KSWItemTypeBaseDescription(KSWItemTypeAll), "all");
    EXPECT_EQ(KSWItemTypeDescription(KSWItemTypeAgent | KSWItemTypeLegacyBit), "legacy agent");
    EXPECT_EQ(KSWItemFlagsDescription(KSWItemFlagLegacy | KSWItemFlagManaged), "[ legacy, managed ]");
    EXPECT_EQ(KSWDispositionDescription(0), "[disabled, disallowed, visible, not notified]");
    EXPECT_TRUE(KSWDispositionIsLaunchable(KSWDispositionEnabled | KSWDispositionAllowed));
    EXPECT_TRUE(ValidateItemType(KSWItemTypeDaemon));
    EXPECT_FALSE(KSWItemTypeValidateRegistrationParameters(KSWItemTypeAgent, std::nullopt, std::nullopt));
    EXPECT_EQ(ComposedItemIdentifier(0x10008, "x"), "8.x");
    EXPECT_EQ(ItemIdentifierCopyBaseFromIdentifierAndType("8.a.b", 0x8), "a.b");
    EXPECT_EQ(LabelForStewardPlist(ksw::URL::fileURL("/nowhere")), std::nullopt);
}

TEST_F(AProgramOutside, IdentifiesAndNamesItemsByTheirFiles) {
    const ksw::URL url = ksw::URL::fileURL("/nowhere/job.plist");
    const ksw::Dictionary job{{KSWConfigLabel, "my.job"}, {KSWConfigExecutablePath, "/nowhere/tool"}};
    EXPECT_EQ(ItemIdentifierWithRegistrationInfo(0x10008, std::nullopt, url, job), "8.my.job");
    EXPECT_EQ(ItemNameForURL(url), "job.plist");
    EXPECT_EQ(ItemNameForStewardPlist(job), "tool");
    const auto item = KSWItem::itemWithType(0x2, "2.a");
    item->setUrl(url);
    item->setName("Stored");
    item->_setExecutableModificationDateFromURL(url);
    EXPECT_EQ(item->resolvedURL(), std::nullopt);
    EXPECT_EQ(item->localizedName(), "Stored");
    EXPECT_FALSE(item->modificationDateMatchesFileSystem());
    EXPECT_FALSE(item->executableModificationDateMatchesFileSystem());
    EXPECT_FALSE(item->syncURLAndBookmark());
}

TEST_F(AProgramOutside, AsksWhoOwnsTheConsoleAndTellsUsersServicesOfParentApplications) {
    EXPECT_EQ(ConsoleUserUID(), 0U);
    RegisterParentApps("/Applications/Ledger.app", 501);
}

TEST_F(AProgramOutside, FindsTheApplicationsOfItsHost) {
    std::filesystem::create_directories(root_ / "opt/Tool.app/Contents");
    std::ofstream(root_ / "opt/Tool.app/Contents/Info.plist")
        << "<plist><dict><key>QCBundleIdentifier</key><string>com.example.tool</string></dict></plist>";
    const auto all = ksw::applications(ksw::kEveryUser);
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].identifier(), "com.example.tool");
    EXPECT_EQ(all[0].url().path(), (root_ / "opt/Tool.app").native());
    EXPECT_EQ(all[0].localizedName(), "Tool");
    EXPECT_EQ(all[0].team(), std::nullopt);
    EXPECT_TRUE(all[0].isPlaceholder());
    EXPECT_FALSE(ksw::applicationWithIdentifier("com.example.tool", ksw::kEveryUser));
}

TEST_F(AProgramOutside, HasTheAttributionTablesOfItsHost) {
    const auto write = [&](const std::string& path, std::string_view text) {
        std::filesystem::create_directories((root_ / path).parent_path());
        std::ofstream(root_ / path) << text;
    };
    write("usr/share/kestrelwood/internal/com.velmont.kestrelwood", "");
    write("usr/share/kestrelwood/Resources/attributions.plist",
          "<plist><dict><key>p</key><dict><key>TeamIdentifier</key><string>T</string><key>Attribution</key>"
          "<string>Public</string><key>AssociatedBundleIdentifiers</key><array><string>A</string></array></dict>"
          "</dict></plist>");
    write(
        "VelmontInternal/Library/Bundles/KestrelwoodInternal.bundle/Contents/Resources/attributions-internal.plist",
        "<plist><dict><key>i</key><dict><key>Attribution</key><string>Internal</string>"
        "<key>AssociatedBundleIdentifiers</key><array><string>B</string></array></dict></dict></plist>");
    EXPECT_EQ(AttributionsByLabel().size(), 2U);
    EXPECT_EQ(&AttributionsByLabel(), &ksw::AttributionsByLabel());
    EXPECT_EQ(InternalAttributionsByLabel()->size(), 1U);
    EXPECT_EQ(AttributionInfoForLabelAndTeamID("p", "T")->size(), 3U);
    EXPECT_EQ(AttributionInfoForLabelAndTeamID("p", "U"), std::nullopt);
    EXPECT_EQ(CuratedDeveloperNameForLabelAndTeamID("p", "T"), "Public");
    EXPECT_EQ(CuratedInternalNameForLabel("i"), "Internal");
    EXPECT_THAT(*CuratedAssociatedBundleIdentifiersForLabelAndTeamID("p", "T"), ElementsAre("A"));
    EXPECT_THAT(*CuratedInternalAssociatedBundleIdentifiersForLabel("i"), ElementsAre("B"));
    EXPECT_TRUE(AttributionsContainsLabelOrAttributionValue("Internal"));
    EXPECT_FALSE(AttributionsContainsLabelOrAttributionValue(std::nullopt));
}

TEST_F(AProgramOutside, UsesConstantsAsStringsKeysAndViews) {
    const std::string text = KSWConfigLabel;
    const std::string_view view = KSWConfigLabel;
    EXPECT_EQ(text, view);
    EXPECT_TRUE(KSWErrorDomain == "KSWErrorDomain");
    ksw::Dictionary configuration;
    configuration[KSWConfigLabel] = "my.agent";
    EXPECT_EQ(configuration, (ksw::Dictionary{{KSWConfigLabel, "my.agent"}}));
    EXPECT_EQ((std::map<std::string, int>{{KSWConfigLabel, 1}}.at(KSWConfigLabel)), 1);
}

TEST_F(AProgramOutside, MakesItemsOfFilesAndJobs) {
    const ksw::URL url = ksw::URL::fileURL("/missing");
    const auto config = ksw::configurationFromJob({{"Label", "a"}, {"Program", "/missing"}});
    ASSERT_NE(config, std::nullopt);
    const auto parent = KSWItem::itemWithType(KSWItemTypeApp, url, "2.a");
    const auto item = KSWItem::itemWithType<Special>(KSWItemTypeAgent, url, "8.a", parent);
    EXPECT_EQ(item->container(), parent);
    EXPECT_EQ(item->setPropertiesWithKSWConfig(config), std::nullopt);
    EXPECT_FALSE(item->setExecutablePathFromLauncherTargetWithConfig(config));
    EXPECT_EQ(item->executablePath(), "/missing");
    EXPECT_EQ(item->iconURL(), url);
    EXPECT_EQ(KSWItem::itemWithType<Special>(KSWItemTypeApp, url), nullptr);
    EXPECT_EQ(KSWItem::developerItemForItem<Special>(*item)->identifier(), "Unknown Developer");
    EXPECT_EQ(KSWItem::baseItemFromItemRecord<Special>(*item)->uuid(), item->uuid());
    EXPECT_EQ(KSWItem::_urlForBundleIdentifier("com.example.none"), std::nullopt);
    std::optional<ksw::URL> vouching;
    const auto legacy = KSWItem::legacyAgentOrDaemonItemWithType<Special>(
        KSWItemTypeDaemon | KSWItemTypeLegacyBit, url, "16.a", config, &vouching, ksw::kEveryUser);
    EXPECT_EQ(legacy->name(), "missing");
}

TEST_F(AProgramOutside, ComparesValues) {
    EXPECT_EQ(KSWErrorWithCode(-95), KSWErrorWithCode(KSWErrorRecordNotFound));
    EXPECT_EQ(KSWErrorWithCode(-95).userInfo().at(ksw::kLocalizedDescriptionKey), ksw::Value("record not found"));
    EXPECT_EQ(ksw::URL::fileURL("/a"), ksw::URL::fromString("file:///a"));
    EXPECT_EQ(ksw::Value(KSWErrorWithCode(-1)), ksw::Value(KSWErrorWithCode(-1)));
    EXPECT_NE(ksw::UUID::random(), ksw::UUID::random());
    EXPECT_EQ(ksw::describe(ksw::Bytes(ksw::Data{1})), "{length = 1, bytes = 0x01}");
    EXPECT_EQ(ksw::describe(ksw::Value(7)), "7");
    EXPECT_EQ(ksw::Date{}.string(), "2001-01-01 00:00:00 +0000");
}

TEST_F(AProgramOutside, BuildsFamiliesOfItems) {
    const auto parent = KSWItem::initWithType(KSWItemTypeDeveloper, "Example Works");
    const auto item = KSWItem::itemWithType<Special>(0x8, "8.a");
    item->setContainer(parent);
    for (const auto& child : *parent->embeddedItems()) {
        EXPECT_TRUE(child->isEqual(item));
    }
    for (const auto& child : parent->enumeratorOfEmbeddedItems()) {
        EXPECT_EQ(child->container(), parent);
    }
    parent->enumerateFamilyTreeUsingBlock([](const std::shared_ptr<KSWItem>& one) { one->setAllowed(true); });
    EXPECT_EQ(parent->memberOfEmbeddedItems(item), item);
    EXPECT_EQ(item->fullPath(), std::nullopt);
    EXPECT_EQ(item->effectiveDisposition(), KSWDispositionAllowed);
    EXPECT_EQ(item->copy()->uuid(), item->uuid());
    EXPECT_THAT(item->dumpVerboseDescription(), testing::HasSubstr("Parent Identifier: Example Works\n"));
    item->setContainer(nullptr);
    EXPECT_EQ(parent->countOfEmbeddedItems(), 0U);
    parent->setEmbeddedItems({item});
    EXPECT_EQ(parent->countOfEmbeddedItems(), 1U);
}

TEST_F(AProgramOutside, BuildsResultsAndRecords) {
    EXPECT_EQ(KSWFetchResult::resultWithCode(-95, nullptr)->firstItem(), nullptr);
    const auto item = KSWItem::itemWithType(0x8, "8.a");
    const auto result = KSWFetchResult::resultWithCode(0, {item, item});
    EXPECT_EQ(result->items().size(), 2U);
    EXPECT_THAT(result->containers(), IsEmpty());
    EXPECT_EQ(result->encodedItems().size(), 2U);
    const auto settings = KSWUserSettings::init();
    (*settings->enablementStatusByIdentifier())["cron"] = 1;
    EXPECT_EQ(settings->copy()->enablementStatusByIdentifier()->size(), 1U);
    EXPECT_TRUE(KSWLoginItem::initWithType(0x4, std::nullopt, ksw::Data{1}, true)->hidden());
    EXPECT_EQ(KSWBackgroundItem::initWithType(0x3, ksw::Data{1})->userElection(), 0);
}

TEST_F(AProgramOutside, AsksAManager) {
    KSWManager& manager = KSWManager::shared();
    KSWDisposition disposition = 77;
    std::int64_t stored = 77;
    std::optional<ksw::Data> constraint;
    const auto app = ksw::URL::fileURL("/Apps/A.app");
    const auto job = ksw::URL::fromString("Contents/a.plist");
    const ksw::Dictionary configuration{{KSWConfigLabel, "my.agent"}};
    std::shared_ptr<KSWItem> item;
    EXPECT_FALSE(manager.getEffectiveDisposition(&disposition, &constraint, app, 8, job, configuration, 501));
    EXPECT_FALSE(manager.getEffectiveDisposition(&disposition, nullptr, ksw::AuditToken{}, 8, std::nullopt,
                                                 std::nullopt, 501));
    EXPECT_FALSE(manager.getItemDisposition(&stored, app, 8, job, configuration, 501));
    EXPECT_EQ(disposition, 77U);
    EXPECT_FALSE(manager.canLaunchItemWithAppURL(app, 8, job, configuration));
    EXPECT_EQ(manager.fetchItemWithAppURL(app, 8, job, configuration, 501), nullptr);
    EXPECT_EQ(manager.registerItem(&item, app, 8, job, configuration, 501), -1);
    EXPECT_EQ(manager.registerItem(nullptr, ksw::AuditToken{}, 8, job, configuration, 501), -1);
    EXPECT_EQ(manager.unregisterItemWithBundleURL(app, 8, job, 501), -1);
    EXPECT_EQ(manager.unregisterItemWithAuditToken(ksw::AuditToken{}, 8, job, 501), -1);
    EXPECT_THAT(manager.UIDs(), IsEmpty());
    EXPECT_EQ(KSWManager::sharedRosterManager().connection()->serviceName(), "com.velmont.kestrelwood.roster");
}

TEST_F(AProgramOutside, RegistersLaunchItems) {
    const auto manager = KSWManager::initWithMode(0);
    const ksw::AuditToken token;
    EXPECT_FALSE(manager->registerLaunchItemWithBundleURL(std::nullopt, 8, std::nullopt, std::nullopt, 501));
    EXPECT_FALSE(manager->registerLaunchItemWithAuditToken(token, 8, std::nullopt, std::nullopt));
    EXPECT_FALSE(manager->unregisterLaunchItemWithBundleURL(std::nullopt, 8, std::nullopt, 501));
    EXPECT_FALSE(manager->unregisterLaunchItemWithAuditToken(token, 8, std::nullopt));
    EXPECT_EQ(manager->invalidateLaunchItemWithBundleURL(std::nullopt, 8, std::nullopt, std::nullopt, 501),
              nullptr);
}

TEST_F(AProgramOutside, AsksARegistrar) {
    KSWRegistrar& registrar = KSWRegistrar::shared();
    std::int64_t disposition = 77;
    std::shared_ptr<KSWItem> item;
    EXPECT_EQ(registrar.registerItem(&item, std::nullopt, 8, std::nullopt, std::nullopt, 501), -1);
    EXPECT_FALSE(
        registrar.getEffectiveDisposition(&disposition, nullptr, std::nullopt, 8, std::nullopt, std::nullopt, 501));
    EXPECT_EQ(registrar.fetchItemWithAppURL(std::nullopt, 8, std::nullopt, std::nullopt, 501), nullptr);
    registrar.setUIDs({501});
    EXPECT_THAT(registrar.UIDs(), ElementsAre(501U));
    std::optional<ksw::Error> error;
    EXPECT_EQ(registrar.connection()->serverStatus(&error), std::nullopt);
    EXPECT_EQ(error.value().domain(), ksw::kConnectionErrorDomain);
}

TEST_F(AProgramOutside, AsksForRecords) {
    const auto manager = KSWManager::initWithMode(0);
    const auto item = KSWItem::itemWithType(0x8, "8.a");
    const auto url = *ksw::URL::fromString("https://example.com/");
    std::optional<ksw::Error> error;
    EXPECT_FALSE(manager->addItem(item, 501, &error));
    EXPECT_EQ(error.value().domain(), ksw::kConnectionErrorDomain);
    EXPECT_TRUE(manager->removeItem(item, 501, &error));
    EXPECT_FALSE(manager->updateItem(item, 501, &error));
    EXPECT_FALSE(manager->updateItems({item}, 501, &error));
    EXPECT_FALSE(manager->updateItems(ksw::ItemSet::of({item}), 501));
    EXPECT_EQ(manager->getItemWithIdentifier("8.a", 501, &error), nullptr);
    EXPECT_EQ(manager->fetchItemWithUUID(item->uuid(), 501, &error), nullptr);
    EXPECT_EQ(manager->getItemsMatching(8, 501, &error), nullptr);
    EXPECT_EQ(manager->getItemsMatching(8, &error), nullptr);
    EXPECT_EQ(manager->getItemsMatching(8), nullptr);
    EXPECT_NE(manager->addUserItemForURL(url, 501, &error), nullptr);
    EXPECT_NE(manager->addUserItemForURL(url, &error), nullptr);
    EXPECT_NE(manager->addUserItemForURL(url), nullptr);
    manager->handleUserDataDidChangeNotification({KSWUserDataDidChangeNotification, std::nullopt});
}

TEST_F(AProgramOutside, AsksForSettingsAndLegacyLoginItems) {
    const auto manager = KSWManager::initWithMode(0);
    const auto roster = KSWManager::initWithMode(1);
    const auto item = KSWItem::itemWithType(0x4, "4.a");
    const auto url = ksw::URL::fileURL("/Apps/A.app");
    std::optional<ksw::Error> error;
    EXPECT_EQ(manager->userSettingsForUID(501), nullptr);
    EXPECT_FALSE(manager->saveUserSettings(KSWUserSettings::init()));
    EXPECT_EQ(roster->fetchRosterItemsMatching(0x7, &error), std::nullopt);
    EXPECT_EQ(roster->addRosterItemWithURL(url, 0x4, false, false, &error), nullptr);
    EXPECT_FALSE(roster->updateRosterItem(item, &error));
    EXPECT_FALSE(roster->removeRosterItem(item, &error));
    EXPECT_FALSE(roster->importRosterLoginItemFromURL(url, 501, true));
    EXPECT_TRUE(roster->importRosterLoginItemsAndDeleteWhenDone(true));
}

TEST_F(AProgramOutside, ManagesTheDaemon) {
    const auto manager = KSWManager::initWithMode(0);
    const std::optional<ksw::Authorization> authorization = ksw::Authorization::ofCallingProcess();
    EXPECT_NE(authorization, std::nullopt);
    std::optional<ksw::Error> error;
    bool always = true;
    EXPECT_EQ(manager->mdmPayloadForIdentifier("a"), std::nullopt);
    manager->setMDMPayload(ksw::Dictionary{{"a", 1}}, "a", true);
    manager->setMDMPayload(std::nullopt, "a");
    manager->refreshManagedItems();
    EXPECT_FALSE(manager->submitManagedJobAtPath("/a.plist", &error));
    EXPECT_FALSE(manager->removeManagedJobAtPath("/a.plist", &error));
    EXPECT_FALSE(manager->removeManagedJobWithLabel("a", &error));
    manager->stewardWillScanPath("/Library");
    manager->stewardDidScanPath("/Library");
    manager->noteLogoutForUID(501);
    EXPECT_FALSE(manager->scheduleGarbageCollection());
    EXPECT_EQ(manager->dumpDatabaseWithAuthorization(authorization, &error), std::nullopt);
    EXPECT_FALSE(manager->eraseDatabaseWithAuthorization(ksw::Data{1}, &error));
    EXPECT_FALSE(manager->setAlwaysPostNotifications(true));
    EXPECT_FALSE(manager->getAlwaysPostNotifications(&always));
    manager->handleNotificationResponseWithIdentifier("n", "open");
}

TEST_F(AProgramOutside, SwitchesSubsystems) {
    bool answer = false;
    EXPECT_EQ(UIDForSubsystem(KSWSubsystemCron), ksw::kEveryUser);
    EXPECT_EQ(KSWLocalizedNameForSubsystem(KSWSubsystemGlimpse), "KSW_SUBSYSTEM_GLIMPSE");
    EXPECT_EQ(KSWHaveEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 501, &answer), -1);
    EXPECT_EQ(KSWGetEnablementStatusForSubsystemAndUID("other", 501, &answer), -1);
    EXPECT_FALSE(KSWGetEnablementStatusForSubsystem(KSWSubsystemCron));
    EXPECT_EQ(KSWSetEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 501, true), 0);
    KSWSetEnablementStatusForSubsystem(KSWSubsystemGlimpse, true);
    EXPECT_FALSE(KSWResetEnablementStatusForSubsystemAndUID(KSWSubsystemCron, 501));
    EXPECT_EQ(ksw_reset_enablement_status_for_subsystem_and_uid(ksw_subsystem_cron, 501), 0);
}

TEST_F(AProgramOutside, KeepsLists) {
    const auto item = KSWItem::itemWithType(0x8, "8.a");
    const auto list = KSWList::initWithItems({item}, 501, 8);
    const auto observer = std::make_shared<Observer>();
    list->addListObserver(observer);
    EXPECT_EQ(list->observers().size(), 1U);
    list->removeListObserver(observer);
    EXPECT_THAT(list->items(), ElementsAre(item));
    EXPECT_THAT(list->containers(), IsEmpty());
    EXPECT_EQ(list->itemAtIndex(0), item);
    EXPECT_EQ(list->indexOfItem(item), 0U);
    EXPECT_TRUE(list->containsItem(item));
    EXPECT_THAT(list->description(), testing::HasSubstr("uid=501 type=agent, count=1"));
    EXPECT_FALSE(list->addItem(item));
    EXPECT_TRUE(list->removeItem(item));
    EXPECT_FALSE(list->updateItem(item));
    EXPECT_FALSE(list->updateItems(ksw::ItemSet::of({item})));
    EXPECT_FALSE(list->refresh());
    EXPECT_FALSE(list->refreshWithError());
    list->setItems({});
    list->setUid(502);
    EXPECT_EQ(KSWList::initWithCoder(*list->encodeWithCoder())->uid(), 502U);
    EXPECT_EQ(KSWList::init()->type(), 4095);
    EXPECT_EQ(KSWList::initWithItems({}, 501, 8, nullptr)->count(), 0U);
}

TEST_F(AProgramOutside, MakesItemsOfFiles) {
    const auto url = ksw::URL::fileURL(root_.string());
    EXPECT_NE(ItemIdentifierForURLAndType(KSWItemTypeUserItem, url), std::nullopt);
    EXPECT_NE(KSWItem::initWithType(KSWItemTypeUserItem, url), nullptr);
    EXPECT_NE(KSWItem::itemWithType(KSWItemTypeUserItem, url), nullptr);
    EXPECT_NE(KSWItem::itemWithType(KSWItemTypeUserItem, url, "given"), nullptr);
    EXPECT_EQ(ksw::readPropertyListFile(url), std::nullopt);
}

}  // namespace
