// What a launch configuration's program says of the job's item.

#include "platform/host/file_facts.h"
#include "tests/model/config/jobs/job_world.h"

namespace ksw::config {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

double dateOf(const std::string& path) {
    return host::fileFacts(path)->contentModificationDate.secondsSinceReference;
}

class AConfiguredItem : public JobTest {};

TEST_F(AConfiguredItem, HasTheFactsOfItsProgram) {
    Dictionary config = configOf("tool");
    config[std::string(KSWConfigArguments)] = Array{"toold", "-v"};
    config[std::string(KSWConfigSHA256Checksum)] = Data(32, 7);
    const Item item = legacyItem(config);
    EXPECT_EQ(item->executablePath(), world.program("tool"));
    EXPECT_EQ(item->executableModificationDate(), dateOf(world.program("tool")));
    EXPECT_THAT(*item->programArguments(), ElementsAre("toold", "-v"));
    EXPECT_EQ(item->sha256(), Data(32, 7));
    EXPECT_EQ(item->teamIdentifier(), kTeam);
    EXPECT_EQ(item->designatedRequirement(), DesignatedRequirementForURL(URL::fileURL(world.program("tool"))));
    EXPECT_EQ(
        item->lightweightRequirement(),
        KSWCodeSignInfo::codeSignInfoForURL(URL::fileURL(world.program("tool")))->lightweightCodeRequirement());
    EXPECT_EQ(item->developerName(), "Example Works");
    EXPECT_FALSE(item->isSandboxed());
    EXPECT_FALSE(item->isCurated());
    EXPECT_EQ(vouching, std::nullopt);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(AConfiguredItem, OfASandboxedProgramIsSandboxedAndStaysSo) {
    const Item item = legacyItem(configOf("script"));
    EXPECT_TRUE(item->isSandboxed());
    EXPECT_EQ(item->lightweightRequirement(), std::nullopt);
    item->setPropertiesWithKSWConfig(configOf("tool"));
    EXPECT_TRUE(item->isSandboxed());
}

TEST_F(AConfiguredItem, OfUnsignedCodeHasNoTeamAndNoDeveloper) {
    for (const char* name : {"plain", "adhoc", "tampered", "missing"}) {
        const Item item = legacyItem(configOf("tool"));
        item->setPropertiesWithKSWConfig(configOf(name));
        EXPECT_EQ(item->executablePath(), world.program(name));
        EXPECT_EQ(item->teamIdentifier(), std::nullopt) << name;
        EXPECT_EQ(item->designatedRequirement(), std::nullopt) << name;
        EXPECT_EQ(item->lightweightRequirement(), std::nullopt) << name;
        EXPECT_EQ(item->developerName(), "") << name;
    }
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(AConfiguredItem, WithoutAProgramHasNoneOfItsFacts) {
    const Item item = legacyItem(configOf("tool"));
    const double date = item->executableModificationDate();
    item->setPropertiesWithKSWConfig(Dictionary{{KSWConfigLabel, "com.example.job"}});
    EXPECT_EQ(item->executablePath(), std::nullopt);
    EXPECT_EQ(item->teamIdentifier(), std::nullopt);
    EXPECT_EQ(item->designatedRequirement(), std::nullopt);
    EXPECT_EQ(item->lightweightRequirement(), std::nullopt);
    EXPECT_EQ(item->programArguments(), std::nullopt);
    EXPECT_EQ(item->sha256(), std::nullopt);
    EXPECT_EQ(item->executableModificationDate(), date) << "a date that cannot be read stays";
    EXPECT_EQ(KSWItem::itemWithType(0x8, "8.a")->setPropertiesWithKSWConfig(std::nullopt), std::nullopt);
}

TEST_F(AConfiguredItem, InAnApplicationFindsARelativeProgramThere) {
    const Item item = itemInTool();
    item->setPropertiesWithKSWConfig(Dictionary{{KSWConfigExecutablePath, "Contents/Helpers/helper"}});
    EXPECT_EQ(item->executablePath(), "Contents/Helpers/helper");
    EXPECT_EQ(item->executableModificationDate(), dateOf(world.application("Tool") + "/Contents/Helpers/helper"));
    EXPECT_EQ(item->teamIdentifier(), kTeam);
    EXPECT_EQ(item->developerName(), "Example Works");
    EXPECT_NE(item->lightweightRequirement(), std::nullopt);
}

TEST_F(AConfiguredItem, InAnApplicationWhoseURLDoesNotSayThatItIsAFolderFindsItToo) {
    const Item item = itemInTool();
    container->setUrl(URL::fileURL(world.application("Tool")));
    item->setPropertiesWithKSWConfig(Dictionary{{KSWConfigExecutablePath, "Contents/Helpers/alias"}});
    EXPECT_EQ(item->teamIdentifier(), kTeam);
}

TEST_F(AConfiguredItem, InAnApplicationTakesAnAbsoluteProgramFromWhereItIs) {
    const Item item = itemInTool();
    item->setPropertiesWithKSWConfig(configOf("other"));
    EXPECT_EQ(item->executablePath(), world.program("other"));
    EXPECT_EQ(item->teamIdentifier(), kOtherTeam);
    EXPECT_EQ(item->developerName(), "Other Works");
}

TEST_F(AConfiguredItem, HasNoProgramThatLeadsOutOfItsApplication) {
    for (const char* path :
         {"../../usr/lib/example/tool", "Contents/../../../usr/lib/example/tool", "Contents/Helpers/stray",
          "Contents/Helpers/elsewhere/tool", "Contents/Helpers/elsewhere/../Helpers/helper",
          "Contents/missing/../Helpers/helper", "..", ".", "Contents/..", "../Tool.app2/x", "../missing",
          "../../../../../../../../../../../../usr/bin/true"}) {
        const Item item = itemInTool();
        log.clear();
        item->setPropertiesWithKSWConfig(Dictionary{{KSWConfigExecutablePath, path}});
        EXPECT_EQ(item->executablePath(), std::nullopt) << path;
        EXPECT_EQ(item->executableModificationDate(), 0) << path;
        EXPECT_EQ(item->teamIdentifier(), std::nullopt) << path;
        EXPECT_THAT(
            errors(),
            ElementsAre("-[KSWItem setPropertiesWithKSWConfig:]: the program lies outside of its application: "
                        "path=" +
                        std::string(path) + ", item=" + item->description()))
            << path;
    }
}

TEST_F(AConfiguredItem, MayNameItsProgramByDetoursThatStayInside) {
    const Item item = itemInTool();
    item->setPropertiesWithKSWConfig(Dictionary{{KSWConfigExecutablePath, "Contents/Linux/../Helpers/./helper"}});
    EXPECT_EQ(item->executablePath(), "Contents/Linux/../Helpers/./helper");
    EXPECT_EQ(item->teamIdentifier(), kTeam);
}

TEST_F(AConfiguredItem, WithARelativeProgramAndNoPlaceForItKeepsThePathAlone) {
    const Dictionary config{{KSWConfigExecutablePath, "Contents/Helpers/helper"}};
    const Item alone = KSWItem::itemWithType(KSWItemTypeAgent, "8.com.example.job");
    const Item placeless = KSWItem::itemWithType(KSWItemTypeApp, "2.com.example.tool");
    const Item inPlaceless = KSWItem::itemWithType(KSWItemTypeAgent, "8.com.example.job");
    inPlaceless->setContainer(placeless);
    for (const Item& item : {alone, inPlaceless, legacyItem({})}) {
        item->setPropertiesWithKSWConfig(config);
        EXPECT_EQ(item->executablePath(), "Contents/Helpers/helper");
        EXPECT_EQ(item->executableModificationDate(), 0);
        EXPECT_EQ(item->teamIdentifier(), std::nullopt);
    }
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(AConfiguredItem, TakesValuesOfAWrongKindForAbsent) {
    const std::vector<Value> wrong{true, 1, 1.5, Data{1}, Date{0}, Array{1}, Array{"a", 1}, Dictionary{}, "text"};
    for (const Value& value : wrong) {
        Dictionary config;
        for (const std::string_view key :
             {std::string_view(KSWConfigLabel), std::string_view(KSWConfigArguments),
              std::string_view(KSWConfigExecutablePath), std::string_view(KSWConfigBundleIdentifiers),
              std::string_view(KSWConfigBundleProgram), std::string_view(KSWConfigSHA256Checksum)}) {
            config.emplace(key, value);
        }
        const Item item = legacyItem(config);
        EXPECT_EQ(item->programArguments(), std::nullopt) << describe(value);
        EXPECT_EQ(item->executablePath().has_value(), value.as<std::string>() != nullptr) << describe(value);
        EXPECT_EQ(item->sha256().has_value(), value.as<Data>() != nullptr) << describe(value);
        EXPECT_EQ(item->associatedBundleIdentifiers(), std::nullopt) << describe(value);
        EXPECT_THAT(errors(), IsEmpty()) << describe(value);
    }
}

TEST_F(AConfiguredItem, TakesTextsLongerThanAFieldForAbsent) {
    const std::string long1 = std::string(65'537, 'a');
    const std::string longest = "/" + std::string(65'535, 'a');
    Item item = legacyItem({{KSWConfigExecutablePath, long1},
                            {KSWConfigArguments, Array{"a", long1}},
                            {KSWConfigBundleIdentifiers, Array{std::string(1 << 20, 'x')}},
                            {KSWConfigSHA256Checksum, Data(65'537)}});
    EXPECT_EQ(item->executablePath(), std::nullopt);
    EXPECT_EQ(item->programArguments(), std::nullopt);
    EXPECT_EQ(item->sha256(), std::nullopt);
    EXPECT_THAT(errors(), IsEmpty());
    item = legacyItem({{KSWConfigExecutablePath, longest},
                       {KSWConfigArguments, Array{"a", longest}},
                       {KSWConfigSHA256Checksum, Data(65'536)}});
    EXPECT_EQ(item->executablePath(), longest);
    EXPECT_THAT(*item->programArguments(), ElementsAre("a", longest));
    EXPECT_EQ(item->sha256(), Data(65'536));
}

TEST_F(AConfiguredItem, MayHaveTenThousandArgumentsAndApplications) {
    Array many;
    for (int number = 0; number < 10'000; ++number) {
        many.emplace_back("com.example.number" + std::to_string(number));
    }
    Dictionary config = configOf("tool");
    config[std::string(KSWConfigArguments)] = many;
    many.emplace_back("com.example.tool");
    config[std::string(KSWConfigBundleIdentifiers)] = many;
    const Item item = legacyItem(config);
    EXPECT_THAT(*item->programArguments(), SizeIs(10'000));
    EXPECT_EQ(vouching, world.applicationURL("Tool"));
    EXPECT_THAT(infos(), SizeIs(10'000));
}

TEST_F(AConfiguredItem, MayBeOfAnyKind) {
    const Item item = legacyItem(configOf("tool"), KSWItemTypeLoginItem | KSWItemTypeLegacyBit);
    EXPECT_EQ(item->teamIdentifier(), kTeam);
    EXPECT_EQ(item->executablePath(), world.program("tool"));
}

}  // namespace
}  // namespace ksw::config
