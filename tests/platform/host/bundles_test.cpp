#include "platform/host/bundles.h"

#include <gtest/gtest.h>

namespace ksw::host {
namespace {

TEST(AnApplication, IsThatOfItsExecutable) {
    EXPECT_EQ(applicationOfExecutable("/opt/My Tools/My.app/Contents/Linux/my"), "/opt/My Tools/My.app");
    EXPECT_EQ(applicationOfExecutable("/Outer.app/Contents/Linux/My.app/Contents/Linux/my"),
              "/Outer.app/Contents/Linux/My.app");
}

TEST(AnApplication, IsNotThatOfAProgramElsewhere) {
    for (const char* path :
         {"", "/", "my", "/usr/bin/my", "/opt/My.app/my", "/opt/My.app/Contents/my", "/opt/My.app/Contents/Linux/",
          "/opt/My.app/Contents/Linux/more/my", "/opt/My/Contents/Linux/my", "/.app/Contents/Linux/my",
          "My.app/Contents/Linux/my", "/opt/My.bundle/Contents/Linux/my", "/opt/My.app//Contents/Linux/my"}) {
        EXPECT_EQ(applicationOfExecutable(path), std::nullopt) << path;
    }
}

TEST(ABundle, IsThatOfItsExecutable) {
    EXPECT_EQ(bundleOfExecutable("/opt/My.bundle/Contents/Linux/my"), "/opt/My.bundle");
    EXPECT_EQ(bundleOfExecutable("/opt/My.app/Contents/Linux/my"), "/opt/My.app");
    EXPECT_EQ(bundleOfExecutable("/Outer.app/Contents/My.bundle/Contents/Linux/my"),
              "/Outer.app/Contents/My.bundle");
    for (const char* path : {"/opt/My/Contents/Linux/my", "/opt/My.bundle/my", "/.bundle/Contents/Linux/my"}) {
        EXPECT_EQ(bundleOfExecutable(path), std::nullopt) << path;
    }
}

TEST(TheWayOfAPath, LeadsIntoApplicationsFromTheOutermostInwards) {
    using Paths = std::vector<std::string>;
    EXPECT_EQ(applicationsOnWay("/opt/A.app/Contents/B.app/b"), (Paths{"/opt/A.app", "/opt/A.app/Contents/B.app"}));
    EXPECT_EQ(applicationsOnWay("//opt//A.app/"), Paths{"/opt/A.app"});
    EXPECT_EQ(applicationsOnWay("A.app/b"), Paths{"A.app"});
    for (const char* path : {"", "/", "/usr/bin/tool", "/.app/b", "/A.bundle/b", "/A.apps/b"}) {
        EXPECT_EQ(applicationsOnWay(path), Paths{}) << path;
    }
}

TEST(TheWayOfAPath, LeadsIntoNoneThatLiesDeeperThanAnyPathLeads) {
    std::string path = "/aa";
    for (int level = 0; level < 1'000; ++level) {
        path += "/b.app";
    }
    const std::vector<std::string> found = applicationsOnWay(path);
    EXPECT_EQ(found.size(), 682U);
    EXPECT_EQ(found.back().size(), 4'095U);
}

TEST(ABundlesName, EndsInOneOfTheKnownExtensions) {
    EXPECT_EQ(bundleExtension("/opt/My.app"), ".app");
    EXPECT_EQ(bundleExtension("/opt/My.bundle//"), ".bundle");
    EXPECT_EQ(bundleExtension("My.1.bundle"), ".bundle");
}

TEST(ABundlesName, IsMoreThanTheExtension) {
    for (const char* name :
         {"", "/", ".app", "/opt/.app", "/opt/.app/", "My.App", "My.app.old", "app", "/My.app/x"}) {
        EXPECT_EQ(bundleExtension(name), "") << name;
    }
}

}  // namespace
}  // namespace ksw::host
