// The team that has signed an application.

#include "platform/facts/application_registry.h"
#include "tests/support/signing_support.h"

namespace ksw::facts {
namespace {

class TheTeamOfAnApplication : public SigningTest {
protected:
    std::string makeApplication() const {
        const test::TempFolder& root = host_.folder();
        root.writeFile(
            "Applications/Tool.app/Contents/Info.plist",
            "<plist><dict><key>QCBundleIdentifier</key><string>com.example.tool</string></dict></plist>");
        root.writeFile("Applications/Tool.app/Contents/Linux/Tool", "#!/bin/sh\n");
        return root.at("Applications/Tool.app");
    }
    std::optional<std::string> team() { return registry_.find("com.example.tool", kEveryUser)->team(); }

    ApplicationRegistry registry_;
};

TEST_F(TheTeamOfAnApplication, IsThatOfItsSignature) {
    SigningRequest byTeam = request(&signer());
    byTeam.team = "TEAM123";
    ASSERT_TRUE(sign(makeApplication(), byTeam));
    EXPECT_EQ(team(), "TEAM123");
}

TEST_F(TheTeamOfAnApplication, IsNoneForASignatureThatNobodyAnswersFor) {
    SigningRequest adHoc = request(nullptr);
    adHoc.team = "TEAM123";
    ASSERT_TRUE(sign(makeApplication(), adHoc));
    EXPECT_EQ(team(), std::nullopt);
}

TEST_F(TheTeamOfAnApplication, IsNoneOnceItsListHasChanged) {
    SigningRequest byTeam = request(&signer());
    byTeam.team = "TEAM123";
    const std::string path = makeApplication();
    ASSERT_TRUE(sign(path, byTeam));
    host_.folder().writeFile("Applications/Tool.app/Contents/Info.plist",
                             "<plist><dict><key>QCBundleIdentifier</key><string>com.example.tool</string>"
                             "<key>QCBundleName</key><string>Another</string></dict></plist>");
    EXPECT_EQ(team(), std::nullopt);
}

}  // namespace
}  // namespace ksw::facts
