// Items made for files in containers, for developers, for legacy jobs and of records.

#include <filesystem>

#include <unistd.h>

#include <kestrelwood/KSWAdditions.h>

#include "platform/host/file_facts.h"
#include "tests/model/config/jobs/job_world.h"

namespace ksw::config {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class Special : public KSWItem {};

class AFileInAContainer : public JobTest {
protected:
    Item app(const std::string& name = "Tool") const {
        return KSWItem::itemWithType(KSWItemTypeApp, world.applicationURL(name), "2.com.example." + name);
    }
    static Item daemonIn(const Item& parent, const std::string& label = "16.com.example.daemon") {
        return KSWItem::itemWithType(KSWItemTypeDaemon, URL::fileURL("Contents/daemon.plist"), label, parent);
    }
};

TEST_F(AFileInAContainer, BecomesItsChildAndItsDevelopersWork) {
    const Item parent = app();
    parent->setDeveloperName("Example Works");
    const Item item = KSWItem::itemWithType(KSWItemTypeLoginItem, URL::fileURL("Contents/Helpers/helper"),
                                            "4.com.example.helper", parent);
    EXPECT_EQ(item->container(), parent);
    EXPECT_EQ(parent->memberOfEmbeddedItems(item), item);
    EXPECT_EQ(item->developerName(), "Example Works");
    EXPECT_EQ(item->disposition(), KSWDispositionEnabled | KSWDispositionAllowed);
    EXPECT_EQ(item->identifier(), "4.com.example.helper");
}

TEST_F(AFileInAContainer, IsFoundThereAndKeepsItsOwnURL) {
    const Item item = KSWItem::itemWithType(KSWItemTypeLoginItem, URL::fileURL("Contents/Helpers/helper"),
                                            "4.com.example.helper", app());
    EXPECT_EQ(item->url(), URL::fileURL("Contents/Helpers/helper"));
    EXPECT_EQ(item->name(), "helper");
    EXPECT_EQ(item->teamIdentifier(), kTeam);
    EXPECT_NE(item->designatedRequirement(), std::nullopt);
    EXPECT_NE(item->lightweightRequirement(), std::nullopt);
    EXPECT_EQ(item->bookmark(), std::nullopt);
    EXPECT_EQ(item->modificationDate(), host::fileFacts(world.application("Tool") + "/Contents/Helpers/helper")
                                            ->contentModificationDate.secondsSinceReference);
}

TEST_F(AFileInAContainer, IsNotLookedAtWhenItsPathLeadsOut) {
    for (const char* path : {"../../usr/lib/example/tool", "Contents/Helpers/stray", "../Other.app"}) {
        const Item item = KSWItem::itemWithType(KSWItemTypeLoginItem, URL::fileURL(path), "4.x", app());
        EXPECT_EQ(item->name(), URL::fileURL(path).lastPathComponent());
        EXPECT_EQ(item->teamIdentifier(), std::nullopt) << path;
        EXPECT_EQ(item->modificationDate(), 0) << path;
    }
}

TEST_F(AFileInAContainer, WithAnAbsolutePathIsWhereThatSays) {
    const Item item = KSWItem::itemWithType(KSWItemTypeLoginItem | KSWItemTypeLegacyBit,
                                            URL::fileURL(world.program("other")), "4.x", app());
    EXPECT_EQ(item->teamIdentifier(), kOtherTeam);
}

TEST_F(AFileInAContainer, ThatIsAJobHasNoSignatureOfItsOwn) {
    const Item item =
        KSWItem::itemWithType(KSWItemTypeAgent, URL::fileURL("Contents/Helpers/helper"), "8.x", app());
    EXPECT_EQ(item->teamIdentifier(), std::nullopt);
    EXPECT_EQ(item->designatedRequirement(), std::nullopt);
    EXPECT_NE(item->modificationDate(), 0);
}

TEST_F(AFileInAContainer, ThatIsADaemonIsAllowedOnceAnotherDaemonThereIs) {
    const Item parent = app();
    const Item first = daemonIn(parent, "16.first");
    EXPECT_EQ(first->disposition(), KSWDispositionEnabled);
    EXPECT_EQ(daemonIn(parent, "16.second")->disposition(), KSWDispositionEnabled) << "the first is not allowed";
    parent->setAggregateAllowed(true);
    EXPECT_EQ(daemonIn(parent, "16.third")->disposition(), KSWDispositionEnabled | KSWDispositionAllowed);
}

TEST_F(AFileInAContainer, ThatIsADaemonIsNotAllowedAmongAgentsAlone) {
    const Item parent = app();
    KSWItem::itemWithType(KSWItemTypeAgent, URL::fileURL("Contents/a.plist"), "8.agent", parent);
    EXPECT_EQ(daemonIn(parent)->disposition(), KSWDispositionEnabled);
}

TEST_F(AFileInAContainer, WithoutAContainerIsAllowedUnlessItIsADaemon) {
    const URL url = URL::fileURL(world.program("tool"));
    EXPECT_EQ(KSWItem::itemWithType(0x10010, url, "16.x", nullptr)->disposition(), KSWDispositionEnabled);
    const Item agent = KSWItem::itemWithType(0x10008, url, "8.x", nullptr);
    EXPECT_EQ(agent->disposition(), KSWDispositionEnabled | KSWDispositionAllowed);
    EXPECT_EQ(agent->container(), nullptr);
    EXPECT_EQ(agent->name(), "tool");
    EXPECT_EQ(KSWItem::itemWithType(0x10008, url, "8.x")->disposition(), 0U);
}

TEST_F(AFileInAContainer, WithoutAPlaceIsWhereItsOwnURLSays) {
    const Item placeless = KSWItem::itemWithType(KSWItemTypeApp, "2.x");
    const Item item =
        KSWItem::itemWithType(KSWItemTypeLoginItem, URL::fileURL(world.program("tool")), "4.x", placeless);
    EXPECT_EQ(item->teamIdentifier(), kTeam);
    EXPECT_EQ(item->container(), placeless);
}

class AnItemOfASignedFile : public JobTest {};

TEST_F(AnItemOfASignedFile, IsIdentifiedAndDescribedByItsSignature) {
    const Item item = KSWItem::itemWithType(KSWItemTypeApp, world.applicationURL("Tool"));
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(item->identifier(), "2.com.example.tool");
    EXPECT_EQ(item->bundleIdentifier(), "com.example.tool");
    EXPECT_EQ(item->teamIdentifier(), kTeam);
    EXPECT_EQ(item->designatedRequirement(), DesignatedRequirementForURL(world.applicationURL("Tool")));
    EXPECT_EQ(item->name(), "Tool");
    EXPECT_EQ(KSWItem::initWithType(KSWItemTypeLodestar, world.applicationURL("Tool"))->identifier(),
              "64.com.example.tool");
}

TEST_F(AnItemOfASignedFile, IsSandboxedWhenItsCodeIs) {
    const Item item = KSWItem::itemWithType(KSWItemTypeGlimpse, URL::fileURL(world.program("script")));
    EXPECT_EQ(item->flags(), KSWItemFlagSandboxed);
    EXPECT_EQ(item->identifier(), "2048.com.example.script");
}

TEST_F(AnItemOfASignedFile, CannotBeMadeOfCodeThatNobodyHasSigned) {
    for (const char* name : {"plain", "adhoc", "tampered", "missing"}) {
        const URL url = URL::fileURL(world.program(name));
        EXPECT_EQ(KSWItem::itemWithType(KSWItemTypeApp, url), nullptr) << name;
        const Item given = KSWItem::itemWithType(KSWItemTypeApp, url, "2.given");
        EXPECT_EQ(given->teamIdentifier(), std::nullopt) << name;
        EXPECT_EQ(given->name(), name);
    }
}

TEST_F(AnItemOfASignedFile, HasABookmarkWhenItIsAnApplicationOrAUsers) {
    for (const KSWItemType type : {0x1U, 0x2U}) {
        const Item item = KSWItem::itemWithType(type, world.applicationURL("Plain"), "x");
        ASSERT_NE(item->bookmark(), std::nullopt) << type;
        EXPECT_EQ(item->resolvedURL()->path(), world.application("Plain"));
        EXPECT_EQ(__ksw_resourcePropertyForKey(*item->bookmark(), kResourceKeyLocalizedName), std::nullopt)
            << "nothing more than it takes to find the file";
    }
    for (const KSWItemType type : {0x4U, 0x8U, 0x10U, 0x10008U, 0x20U, 0x40U, 0x800U}) {
        EXPECT_EQ(KSWItem::itemWithType(type, world.applicationURL("Plain"), "x")->bookmark(), std::nullopt)
            << type;
    }
    EXPECT_EQ(KSWItem::itemWithType(0x2, URL::fileURL("/missing"), "x")->bookmark(), std::nullopt);
}

TEST_F(AnItemOfASignedFile, IsOfTheReceivingClass) {
    const URL url = world.applicationURL("Tool");
    const std::shared_ptr<Special> items[] = {
        KSWItem::initWithType<Special>(KSWItemTypeApp, url),
        KSWItem::itemWithType<Special>(KSWItemTypeApp, url),
        KSWItem::itemWithType<Special>(KSWItemTypeApp, url, "2.x"),
        KSWItem::itemWithType<Special>(KSWItemTypeApp, url, "2.x", nullptr),
        KSWItem::developerItemForItem<Special>(*KSWItem::itemWithType(0x8, "8.a")),
        KSWItem::baseItemFromItemRecord<Special>(*KSWItem::itemWithType(0x8, "8.a")),
        KSWItem::legacyAgentOrDaemonItemWithType<Special>(0x10008, url, "8.a", std::nullopt, nullptr, kEveryUser)};
    for (const auto& item : items) {
        EXPECT_NE(item, nullptr);
    }
}

class ADeveloperItem : public JobTest {};

TEST_F(ADeveloperItem, IsNamedAndIdentifiedByTheDeveloper) {
    const Item item = KSWItem::itemWithType(KSWItemTypeDaemon, "16.x");
    item->setDeveloperName("Example Works");
    item->setManaged(true);
    item->setGlobal(true);
    Item developer = KSWItem::developerItemForItem(*item);
    EXPECT_EQ(developer->type(), KSWItemTypeDeveloper);
    EXPECT_EQ(developer->identifier(), "Example Works");
    EXPECT_EQ(developer->name(), "Example Works");
    EXPECT_EQ(developer->developerName(), "Example Works");
    EXPECT_EQ(developer->disposition(), KSWDispositionAllowed);
    EXPECT_EQ(developer->flags(), KSWItemFlagManaged);
    EXPECT_NE(developer->uuid(), item->uuid());
    EXPECT_EQ(developer->countOfEmbeddedItems(), 0U);
    item->setManaged(false);
    item->setCurated(true);
    developer = KSWItem::developerItemForItem(*item);
    EXPECT_EQ(developer->flags(), KSWItemFlagCurated);
}

TEST_F(ADeveloperItem, OfTheUnknownDeveloperHasAnIdentifierAndNoName) {
    const Item developer = KSWItem::developerItemForItem(*KSWItem::itemWithType(KSWItemTypeDaemon, "16.x"));
    EXPECT_EQ(developer->identifier(), "Unknown Developer");
    EXPECT_EQ(developer->name(), std::nullopt);
    EXPECT_EQ(developer->developerName(), "");
    EXPECT_EQ(developer->disposition(), KSWDispositionAllowed);
    EXPECT_EQ(developer->flags(), 0U);
    EXPECT_TRUE(developer->isUnknownDeveloperRecord());
}

class ALegacyJobsItem : public JobTest {
protected:
    Item made(const std::string& path, std::optional<URL>* receiver, const Dictionary& config) const {
        return KSWItem::legacyAgentOrDaemonItemWithType(KSWItemTypeDaemon | KSWItemTypeLegacyBit,
                                                        URL::fileURL(path), "16.com.example.job", config, receiver,
                                                        kEveryUser);
    }
};

TEST_F(ALegacyJobsItem, IsNamedAfterItsProgramAndMayLaunch) {
    const std::string job = world.write("/etc/jobs/job.plist", "");
    std::optional<URL> receiver = URL::fileURL("/former");
    const Item item = made(job, &receiver, configOf("tool"));
    EXPECT_EQ(item->identifier(), "16.com.example.job");
    EXPECT_EQ(item->name(), "tool");
    EXPECT_EQ(item->disposition(), KSWDispositionEnabled | KSWDispositionAllowed);
    EXPECT_EQ(item->flags(), KSWItemFlagLegacy);
    EXPECT_EQ(item->url(), URL::fileURL(job));
    EXPECT_NE(item->modificationDate(), 0);
    EXPECT_EQ(item->teamIdentifier(), kTeam);
    EXPECT_EQ(receiver, std::nullopt) << "no application vouches";
}

TEST_F(ALegacyJobsItem, TellsWhichApplicationVouches) {
    Dictionary config = configOf("tool");
    config[std::string(KSWConfigBundleIdentifiers)] = Array{"com.example.tool"};
    std::optional<URL> receiver;
    made("/etc/job.plist", &receiver, config);
    EXPECT_EQ(receiver, world.applicationURL("Tool"));
}

TEST_F(ALegacyJobsItem, DoesNotTakeItsConfigurationWhenNobodyAsksWhoVouches) {
    const Item item = made("/etc/job.plist", nullptr, configOf("tool"));
    EXPECT_EQ(item->name(), "tool");
    EXPECT_EQ(item->executablePath(), std::nullopt);
    EXPECT_EQ(item->teamIdentifier(), std::nullopt);
}

TEST_F(ALegacyJobsItem, IsManagedWhenDeviceManagementHasPutItsJobThere) {
    const std::string folder = "/private/var/db/ManagedConfigurationFiles/KestrelwoodServices/";
    EXPECT_TRUE(made(folder + "job.plist", nullptr, {})->isManaged());
    EXPECT_TRUE(made(folder + "below/job.plist", nullptr, {})->isManaged());
    EXPECT_FALSE(made(folder + "../job.plist", nullptr, {})->isManaged());
    EXPECT_FALSE(
        made("/private/var/db/ManagedConfigurationFiles/KestrelwoodServices2/x.plist", nullptr, {})->isManaged());
    EXPECT_FALSE(made("/private/var/db/ManagedConfigurationFiles/x.plist", nullptr, {})->isManaged());
    EXPECT_FALSE(made("/etc" + folder + "job.plist", nullptr, {})->isManaged());
}

TEST_F(ALegacyJobsItem, RegistersItsParentApplicationsFirst) {
    const Uid uid = ::geteuid();
    KSWItem::legacyAgentOrDaemonItemWithType(0x10008, URL::fileURL("/etc/job.plist"), "8.x", configOf("tool"),
                                             nullptr, uid);
    const auto debug = log.at(host::LogLevel::Debug);
    ASSERT_FALSE(debug.empty()) << "nobody listens";
    EXPECT_THAT(debug.front(),
                ::testing::StartsWith("RegisterParentApps: uid=" + std::to_string(uid) + ", error "));
    log.clear();
    KSWItem::legacyAgentOrDaemonItemWithType(0x10008, URL::fileURL("/etc/job.plist"), "8.x", Dictionary{}, nullptr,
                                             uid);
    EXPECT_THAT(log.at(host::LogLevel::Debug), IsEmpty()) << "without a program there is nothing to register";
}

TEST(ABaseCopy, IsTheRecordWithoutItsFamily) {
    const auto parent = KSWItem::itemWithType(KSWItemTypeApp, "2.x");
    const auto record = std::make_shared<Special>();
    record->setType(KSWItemTypeAgent | KSWItemTypeLegacyBit);
    record->setUuid(UUID::random());
    record->setIdentifier("8.com.example.job");
    record->setFlags(KSWItemFlagManaged | KSWItemFlagCurated);
    record->setUrl(URL::fileURL("/etc/job.plist"));
    record->setModificationDate(1.5);
    record->setExecutablePath("/usr/bin/job");
    record->setSha256(Data(32, 1));
    record->setExecutableModificationDate(2.5);
    record->setProgramArguments({{"job", "-v"}});
    record->setName("job");
    record->setDeveloperName("Example Works");
    record->setTeamIdentifier("TEAM");
    record->setDesignatedRequirement("anchor trusted");
    record->setLightweightRequirement(Data{1, 2});
    record->setGeneration(7);
    record->setDisposition(0xB);
    record->setBookmark(Data{3});
    record->setBundleIdentifier("com.example.bundle");
    record->setAssociatedBundleIdentifiers({{"com.example.a", "com.example.b"}});
    record->setEditable(true);
    record->setCanHide(true);
    record->setIsResolvedURLStale(true);
    record->setContainer(parent);
    record->setEmbeddedItems({KSWItem::itemWithType(KSWItemTypeAgent, "8.child")});
    const auto copy = KSWItem::baseItemFromItemRecord(*record);
    EXPECT_EQ(copy->dumpVerboseDescription(), [&] {
        record->setContainer(nullptr);
        record->setEmbeddedItems(ItemSet::of({}));
        return record->dumpVerboseDescription();
    }());
    EXPECT_EQ(copy->flags(), KSWItemFlagManaged | KSWItemFlagCurated) << "as stored, whatever the type would add";
    EXPECT_EQ(copy->type(), record->type());
    EXPECT_EQ(copy->uuid(), record->uuid());
    EXPECT_EQ(copy->modificationDate(), 1.5);
    EXPECT_EQ(copy->executableModificationDate(), 2.5);
    EXPECT_THAT(*copy->programArguments(), ElementsAre("job", "-v"));
    EXPECT_EQ(copy->developerName(), "Example Works");
    EXPECT_EQ(copy->designatedRequirement(), "anchor trusted");
    EXPECT_EQ(copy->lightweightRequirement(), (Data{1, 2}));
    EXPECT_EQ(copy->sha256(), Data(32, 1));
    EXPECT_EQ(copy->bookmark(), Data{3});
    EXPECT_EQ(copy->container(), nullptr);
    EXPECT_EQ(copy->countOfEmbeddedItems(), 0U);
    EXPECT_FALSE(copy->isEditable());
    EXPECT_FALSE(copy->canHide());
    EXPECT_FALSE(copy->isResolvedURLStale());
}

TEST(ABaseCopy, OfAnEmptyRecordIsEmpty) {
    const auto copy = KSWItem::baseItemFromItemRecord(KSWItem());
    EXPECT_EQ(copy->uuid(), std::nullopt);
    EXPECT_EQ(copy->identifier(), std::nullopt);
    EXPECT_EQ(copy->name(), std::nullopt);
    EXPECT_EQ(copy->developerName(), "");
}

}  // namespace
}  // namespace ksw::config
