// Jobs that only open an application.

#include <filesystem>

#include "platform/host/file_facts.h"
#include "tests/model/config/jobs/job_world.h"

namespace ksw::config {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class ALauncher : public JobTest {
protected:
    static Dictionary opening(const Array& arguments) { return {{KSWConfigArguments, arguments}}; }
    Item agent(KSWItemType type = KSWItemTypeAgent | KSWItemTypeLegacyBit) const {
        return KSWItem::itemWithType(type, "8.com.example.job");
    }
    /// What is taken for the application that the arguments open; empty for none.
    std::string opened(const Array& arguments) const {
        const Item item = agent();
        item->setName("job");
        const bool isLauncher = item->setExecutablePathFromLauncherTargetWithConfig(opening(arguments));
        EXPECT_EQ(isLauncher, item->executablePath().has_value());
        EXPECT_EQ(isLauncher, item->name() != "job");
        return item->executablePath().value_or("");
    }
    const std::string tool = world.application("Tool");
    const std::string plain = world.application("Plain");
};

TEST_F(ALauncher, OpensTheApplicationAtAPath) {
    for (const char* program : {"open", "/usr/bin/open"}) {
        for (const char* option : {"-a", "-W", "--wait-apps"}) {
            const Item item = agent();
            EXPECT_TRUE(
                item->setExecutablePathFromLauncherTargetWithConfig(opening({program, option, tool, "--x"})));
            EXPECT_EQ(item->executablePath(), tool);
            EXPECT_EQ(item->name(), "Tool");
            EXPECT_EQ(item->executableModificationDate(),
                      host::fileFacts(tool)->contentModificationDate.secondsSinceReference);
        }
    }
}

TEST_F(ALauncher, TakesThePathAsItStands) {
    EXPECT_EQ(opened({"open", "-a", tool + "/"}), tool + "/");
}

TEST_F(ALauncher, OpensTheApplicationThatThePathOfItsOnlyArgumentLeadsInto) {
    EXPECT_EQ(opened({"open", tool}), tool);
    EXPECT_EQ(opened({"open", tool + "/Contents/Linux/Tool"}), tool);
    EXPECT_EQ(opened({"/usr/bin/open", tool, "--args", "-v"}), tool);
    world.write("/Applications/Tool.app/Contents/Inner.app/x", "");
    EXPECT_EQ(opened({"open", tool + "/Contents/Inner.app/x"}), tool);
}

TEST_F(ALauncher, DoesNotPassForOneOfAnApplicationThatItsPathLeavesAgain) {
    std::filesystem::create_directory_symlink(world.application("Other"), tool + "/Contents/Other.app");
    EXPECT_EQ(opened({"open", tool + "/../Other.app"}), "");
    EXPECT_EQ(opened({"open", tool + "/Contents/../../Other.app/Contents/Linux/Other"}), "");
    EXPECT_EQ(opened({"open", tool + "/Contents/Other.app"}), "");
    EXPECT_EQ(opened({"open", tool + "/Contents/../Contents/Linux/Tool"}), tool);
    EXPECT_EQ(opened({"open", tool + "/Contents/missing"}), tool);
    EXPECT_EQ(legacyItem(opening({"open", "-a", tool + "/../Other.app"}))->teamIdentifier(), kOtherTeam);
    std::filesystem::remove(tool + "/Contents/Other.app");
}

TEST_F(ALauncher, OpensTheApplicationOfAnIdentifier) {
    const Item item = agent(KSWItemTypeDaemon);
    EXPECT_TRUE(item->setExecutablePathFromLauncherTargetWithConfig(opening({"open", "-b", "com.example.plain"})));
    EXPECT_EQ(item->executablePath(), plain);
    EXPECT_EQ(item->name(), "Plain");
    EXPECT_NE(item->executableModificationDate(), 0);
    EXPECT_EQ(opened({"open", "-b", "com.example.nowhere"}), "");
    EXPECT_EQ(opened({"open", "-b", "com.example.waiting"}), "") << "not there wholly";
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(ALauncher, FindsNoIdentifierWithoutAccessToTheRegistry) {
    const DeniedRegistry denied;
    EXPECT_EQ(opened({"open", "-b", "com.example.plain"}), "");
    EXPECT_THAT(
        errors(),
        ElementsAre(StartsWith(denied.lineOf("-[KSWItem setExecutablePathFromLauncherTargetWithConfig:]"))));
    EXPECT_EQ(log.lines()[0].publicForm, log.lines()[0].fullForm);
    EXPECT_EQ(opened({"open", "-a", tool}), tool) << "a path needs no registry";
}

TEST_F(ALauncher, IsNone) {
    const Array none[] = {{},
                          {"open"},
                          {"/usr/bin/open"},
                          {"/bin/open", tool},
                          {"Open", tool},
                          {"xdg-open", tool},
                          {"open", ""},
                          {"open", "-a"},
                          {"open", "-b"},
                          {"open", "-a", "Tool"},
                          {"open", "-a", "Applications/Tool.app"},
                          {"open", "-a", world.program("tool")},
                          {"open", "-a", tool + "/Contents/Linux/Tool"},
                          {"open", "-a", world.application("Missing")},
                          {"open", "-b", tool},
                          {"open", "-g", tool},
                          {"open", "-j", "-a", tool},
                          {"open", "-wait-apps", tool},
                          {"open", world.program("tool")},
                          {"open", "https://example.com/Tool.app"},
                          {tool, "open"}};
    for (const Array& arguments : none) {
        EXPECT_EQ(opened(arguments), "") << describe(Value(arguments));
    }
}

TEST_F(ALauncher, IsNoneOfAnotherKindThanAgentAndDaemon) {
    for (const KSWItemType type :
         {0x1U, 0x2U, 0x4U, 0x10004U, 0x20U, 0x40U, 0x80U, 0x100U, 0x200U, 0x400U, 0x800U}) {
        const Item item = agent(type);
        EXPECT_FALSE(item->setExecutablePathFromLauncherTargetWithConfig(opening({"open", "-a", tool}))) << type;
        EXPECT_EQ(item->executablePath(), std::nullopt) << type;
    }
}

TEST_F(ALauncher, IsNoneWithoutArguments) {
    EXPECT_FALSE(agent()->setExecutablePathFromLauncherTargetWithConfig(std::nullopt));
    EXPECT_FALSE(agent()->setExecutablePathFromLauncherTargetWithConfig(Dictionary{}));
    EXPECT_FALSE(agent()->setExecutablePathFromLauncherTargetWithConfig(
        Dictionary{{KSWConfigArguments, Array{"open", "-a", tool, 1}}}));
}

TEST_F(ALauncher, IsOfWhoeverHasMadeTheApplicationAndRunsAsTheProgramMay) {
    Dictionary config = opening({"open", "-a", world.application("Other")});
    config[std::string(KSWConfigExecutablePath)] = world.program("tool");
    const Item item = legacyItem(config);
    EXPECT_EQ(item->executablePath(), world.application("Other"));
    EXPECT_EQ(item->name(), "Other");
    EXPECT_EQ(item->teamIdentifier(), kOtherTeam);
    EXPECT_EQ(item->developerName(), "Other Works");
    EXPECT_EQ(item->designatedRequirement(), DesignatedRequirementForURL(world.applicationURL("Other")));
    EXPECT_EQ(
        item->lightweightRequirement(),
        KSWCodeSignInfo::codeSignInfoForURL(URL::fileURL(world.program("tool")))->lightweightCodeRequirement());
    EXPECT_FALSE(item->isSandboxed());
    config[std::string(KSWConfigExecutablePath)] = world.program("script");
    EXPECT_TRUE(legacyItem(config)->isSandboxed());
}

TEST_F(ALauncher, NeedsNoProgram) {
    const Item item = legacyItem(opening({"open", "-b", "com.example.tool"}));
    EXPECT_EQ(item->executablePath(), tool);
    EXPECT_EQ(item->teamIdentifier(), kTeam);
    EXPECT_EQ(item->lightweightRequirement(), std::nullopt);
}

}  // namespace
}  // namespace ksw::config
