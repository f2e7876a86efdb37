// Whom a job is attributed to, and which application vouches for it.

#include "tests/model/config/jobs/job_world.h"
#include "tests/support/sys_faults.h"

namespace ksw::config {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const std::string kFunction = "-[KSWItem setPropertiesWithKSWConfig:]";

std::string noRecord(const std::string& identifier) {
    return kFunction + ": no Almanac record for bundle identifier '" + identifier;
}

class AnAttribution : public JobTest {
protected:
    Dictionary labelled(const std::string& label, const std::string& program = "plain") const {
        return {{KSWConfigLabel, label}, {KSWConfigExecutablePath, world.program(program)}};
    }
    /// A job that names applications as its own.
    Item claiming(const Array& identifiers, const std::string& program = "tool",
                  const std::string& label = "com.example.job") {
        Dictionary config = labelled(label, program);
        config[std::string(KSWConfigBundleIdentifiers)] = identifiers;
        return legacyItem(config);
    }
};

TEST_F(AnAttribution, IsCuratedForALabelThatItsTeamHasSigned) {
    const Item item = legacyItem(labelled("com.example.curated", "tool"));
    EXPECT_EQ(item->developerName(), "Curated Works");
    EXPECT_THAT(*item->associatedBundleIdentifiers(), ElementsAre("com.example.tool"));
    EXPECT_TRUE(item->isCurated());
    EXPECT_EQ(vouching, std::nullopt) << "a curated application does not vouch";
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(AnAttribution, IsCuratedWithoutApplicationsWhenTheTableHasNone) {
    const Item item = legacyItem(labelled("com.example.bare", "tool"));
    EXPECT_EQ(item->developerName(), "Bare Works");
    EXPECT_EQ(item->associatedBundleIdentifiers(), std::nullopt);
    EXPECT_TRUE(item->isCurated());
    EXPECT_THAT(errors(),
                ElementsAre("CuratedAssociatedBundleIdentifiersForLabelAndTeamID: unexpected class (null) "
                            "for label com.example.bare"));
}

TEST_F(AnAttribution, IsTheSignersForALabelOfAnotherTeam) {
    const Item item = legacyItem(labelled("com.example.curated", "other"));
    EXPECT_EQ(item->developerName(), "Other Works");
    EXPECT_EQ(item->associatedBundleIdentifiers(), std::nullopt);
    EXPECT_FALSE(item->isCurated());
}

TEST_F(AnAttribution, IsTheSignersForAnEmptyListOfApplicationsWithoutALabel) {
    const Item item =
        legacyItem({{KSWConfigExecutablePath, world.program("tool")}, {KSWConfigBundleIdentifiers, Array{}}});
    EXPECT_EQ(item->developerName(), "Example Works");
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(AnAttribution, IsCuratedForAnEmptyListOfApplications) {
    EXPECT_EQ(claiming({}, "tool", "com.example.curated")->developerName(), "Curated Works");
}

TEST_F(AnAttribution, IsNotCuratedForAJobThatNamesApplicationsItself) {
    const Item item = claiming({"com.example.nowhere"}, "tool", "com.example.curated");
    EXPECT_EQ(item->developerName(), "Example Works");
    EXPECT_FALSE(item->isCurated());
}

TEST_F(AnAttribution, ComesWithTheFirstApplicationThatTheSameTeamHasSigned) {
    const Item item = claiming({"com.example.nowhere", "com.example.other", "com.example.plain",
                                "com.example.waiting", "com.example.tool", "com.example.system"});
    EXPECT_EQ(vouching, world.applicationURL("Tool"));
    EXPECT_THAT(*item->associatedBundleIdentifiers(),
                ElementsAre("com.example.nowhere", "com.example.other", "com.example.plain", "com.example.waiting",
                            "com.example.tool", "com.example.system"));
    EXPECT_EQ(item->developerName(), "Example Works");
    EXPECT_THAT(infos(), ElementsAre(noRecord("com.example.nowhere"), noRecord("com.example.waiting")));
    EXPECT_EQ(log.lines()[0].publicForm, log.lines()[0].fullForm);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(AnAttribution, ComesWithNoApplicationOfAnotherTeam) {
    const Item item = claiming({"com.example.other", "com.example.plain", "com.example.system"});
    EXPECT_EQ(vouching, std::nullopt);
    EXPECT_EQ(item->associatedBundleIdentifiers(), std::nullopt);
    EXPECT_EQ(item->developerName(), "Example Works");
}

TEST_F(AnAttribution, LooksAtAnApplicationOnceHoweverOftenTheJobNamesIt) {
    constexpr unsigned kTimes = 1'000;
    const test::SysFaults calls;
    claiming(Array(kTimes, Value("com.example.other")));
    EXPECT_LT(calls.count(host::sys::Call::Open), kTimes);
}

TEST_F(AnAttribution, OfTheSystemsCodeComesWithAnApplicationOfTheSystems) {
    const Item item = claiming({"com.example.tool", "com.example.system"}, "system");
    EXPECT_EQ(item->teamIdentifier(), "SYSTEMAPPS");
    EXPECT_EQ(vouching, world.applicationURL("System"));
    EXPECT_THAT(*item->associatedBundleIdentifiers(), ElementsAre("com.example.tool", "com.example.system"));
    EXPECT_EQ(item->developerName(), "") << "the maker is no developer";
    EXPECT_EQ(claiming({"com.example.tool", "com.example.plain"}, "system")->associatedBundleIdentifiers(),
              std::nullopt);
}

TEST_F(AnAttribution, WithoutAccessToTheRegistryComesWithNoApplication) {
    const DeniedRegistry denied;
    const Item item = claiming({"com.example.tool"});
    EXPECT_EQ(vouching, std::nullopt);
    EXPECT_EQ(item->associatedBundleIdentifiers(), std::nullopt);
    EXPECT_EQ(item->developerName(), "Example Works");
    EXPECT_THAT(errors(), ElementsAre(StartsWith(denied.lineOf(kFunction))));
    EXPECT_EQ(log.lines()[0].text, "%s: failed to access almanacd for uid=%d: %{public}@");
    EXPECT_THAT(infos(), IsEmpty());
}

TEST_F(AnAttribution, WithoutATeamIgnoresTheApplicationsThatAJobNames) {
    for (const char* program : {"plain", "maker"}) {
        log.clear();
        const Item item = claiming({"com.example.tool"}, program);
        EXPECT_EQ(vouching, std::nullopt);
        EXPECT_EQ(item->associatedBundleIdentifiers(), std::nullopt);
        EXPECT_EQ(item->developerName(), "");
        EXPECT_THAT(errors(), ElementsAre("Bundle identifiers from steward plist ignored because the executable "
                                          "doesn't have a Team ID. Item=" +
                                          item->description()));
        EXPECT_THAT(infos(), IsEmpty());
    }
}

TEST_F(AnAttribution, WithoutATeamAndApplicationsSaysNothing) {
    EXPECT_EQ(legacyItem(labelled("com.example.curated"))->developerName(), "");
    EXPECT_EQ(legacyItem(labelled("com.velmont.inner"))->developerName(), "");
    EXPECT_THAT(errors(), IsEmpty());
}

class AnInternalAttribution : public AnAttribution {
protected:
    AnInternalAttribution() { world.setInternal(true); }
};

TEST_F(AnInternalAttribution, ComesWithAnApplicationThatIsNobodysAsWell) {
    const Item item = legacyItem(labelled("com.velmont.inner"));
    EXPECT_EQ(item->developerName(), "Inner Works");
    EXPECT_THAT(*item->associatedBundleIdentifiers(), ElementsAre("com.example.nowhere", "com.example.plain"));
    EXPECT_EQ(vouching, world.applicationURL("Plain"));
    EXPECT_FALSE(item->isCurated());
    EXPECT_THAT(infos(), ElementsAre(noRecord("com.example.nowhere")));
}

TEST_F(AnInternalAttribution, IsCuratedWhenNoApplicationVouches) {
    const Item item = legacyItem(labelled("com.velmont.strangers"));
    EXPECT_EQ(item->developerName(), "Strange Works");
    EXPECT_THAT(*item->associatedBundleIdentifiers(), ElementsAre("com.example.tool"));
    EXPECT_EQ(vouching, std::nullopt);
    EXPECT_TRUE(item->isCurated());
}

TEST_F(AnInternalAttribution, IsCuratedWithoutApplications) {
    const Item item = legacyItem(labelled("com.velmont.alone"));
    EXPECT_EQ(item->developerName(), "Alone Works");
    EXPECT_EQ(item->associatedBundleIdentifiers(), std::nullopt);
    EXPECT_TRUE(item->isCurated());
    EXPECT_THAT(errors(), ElementsAre("CuratedInternalAssociatedBundleIdentifiersForLabel: unexpected class (null) "
                                      "for label com.velmont.alone"));
}

TEST_F(AnInternalAttribution, WithoutAccessToTheRegistryIsCurated) {
    const DeniedRegistry denied;
    const Item item = legacyItem(labelled("com.velmont.inner"));
    EXPECT_EQ(item->developerName(), "Inner Works");
    EXPECT_THAT(*item->associatedBundleIdentifiers(), ElementsAre("com.example.nowhere", "com.example.plain"));
    EXPECT_EQ(vouching, std::nullopt);
    EXPECT_TRUE(item->isCurated());
    EXPECT_THAT(errors(), ElementsAre(StartsWith(denied.lineOf(kFunction))));
}

TEST_F(AnInternalAttribution, SaysNothingOfAnotherLabelOrOfCodeOfATeam) {
    EXPECT_EQ(legacyItem(labelled("com.example.unknown"))->developerName(), "");
    const Item item = legacyItem(labelled("com.velmont.inner", "tool"));
    EXPECT_EQ(item->developerName(), "Example Works");
    EXPECT_FALSE(item->isCurated());
    EXPECT_EQ(item->associatedBundleIdentifiers(), std::nullopt);
}

TEST_F(AnInternalAttribution, IgnoresTheApplicationsThatTheJobNamesSilently) {
    const Item item = claiming({"com.example.tool"}, "plain", "com.velmont.inner");
    EXPECT_THAT(*item->associatedBundleIdentifiers(), ElementsAre("com.example.nowhere", "com.example.plain"));
    EXPECT_EQ(vouching, world.applicationURL("Plain"));
    EXPECT_THAT(errors(), IsEmpty());
}

}  // namespace
}  // namespace ksw::config
