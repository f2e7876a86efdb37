// What device management says of items that known developers have made, whose families are judged together.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/servers/kestrelwoodd/signed_items.h"

namespace ksw::daemon::test {
namespace {

constexpr KSWDisposition kEnabled = KSWDispositionEnabled;
constexpr KSWDisposition kLaunchable = KSWDispositionEnabled | KSWDispositionAllowed;

class AManagedFamily : public ASignedItem {
protected:
    void rule(std::string_view match, std::string_view value, std::string_view effect) {
        const Value rule = Dictionary{{"Match", Value(match)}, {"Value", Value(value)}, {"Effect", Value(effect)}};
        const auto payload = std::make_shared<const Dictionary>(Dictionary{{"Rules", Value(Array{rule})}});
        ASSERT_EQ(daemon_.registry().setPayload("policy", payload, true).code, KSWErrorNone);
    }
    void lift() { ASSERT_EQ(daemon_.registry().setPayload("policy", nullptr, true).code, KSWErrorNone); }
    KSWDisposition inForce(const std::string& label, const std::string& path) {
        return askOfAgent(&Operations::effectiveDisposition, label, path).disposition;
    }
};

TEST_F(AManagedFamily, IsForbiddenWithItsDeveloperAndAsItsUserChoseAfterwards) {
    const std::string tool = program("tool");
    const std::string other = program("other");
    enterAgent("my.agent", tool);
    enterAgent("second.agent", other);
    setAllowed(agent("second.agent"), false);
    rule("Developer", "Example Org", "Disallow");
    EXPECT_EQ(inForce("my.agent", tool), kEnabled);
    EXPECT_TRUE(developer("Example Org")->isManaged());
    EXPECT_FALSE(developer("Example Org")->isAllowed());
    // What he makes later is forbidden too.
    EXPECT_EQ(enterAgent("third.agent", other).item->disposition(), kEnabled);
    setAllowed(developer("Example Org"), true);
    EXPECT_FALSE(developer("Example Org")->isAllowed());
    lift();
    EXPECT_TRUE(developer("Example Org")->isAllowed());
    EXPECT_FALSE(developer("Example Org")->isManaged());
    EXPECT_EQ(agent("my.agent")->disposition(), kLaunchable);
    EXPECT_EQ(agent("second.agent")->disposition(), kEnabled);
    EXPECT_EQ(agent("third.agent")->disposition(), kLaunchable);
}

TEST_F(AManagedFamily, HasOneWhichARuleAllowsLaunchAlone) {
    const std::string tool = program("tool");
    for (const char* label : {"my.agent", "second.agent", "third.agent"}) {
        enterAgent(label, tool);
    }
    setAllowed(agent("second.agent"), false);
    ASSERT_EQ(inForce("my.agent", tool), kEnabled);
    rule("Label", "my.agent", "Allow");
    EXPECT_EQ(inForce("my.agent", tool), kLaunchable);
    EXPECT_EQ(inForce("second.agent", tool), kEnabled);
    EXPECT_EQ(inForce("third.agent", tool), kEnabled);
    setAllowed(developer("Example Org"), false);
    EXPECT_EQ(inForce("my.agent", tool), kLaunchable);
    lift();
    EXPECT_EQ(inForce("my.agent", tool), kEnabled);
}

TEST_F(AManagedFamily, KeepsWhatItsUserChoseWhenItsCodeIsAnothersNow) {
    const std::string tool = program("tool");
    enterAgent("my.agent", tool);
    rule("Label", "my.agent", "Disallow");
    replace(tool, "Other Works");
    EXPECT_EQ(enterAgent("my.agent", tool).item->disposition(), kEnabled);
    EXPECT_EQ(agent("my.agent")->container()->identifier(), "Other Works");
    lift();
    EXPECT_EQ(agent("my.agent")->disposition(), kLaunchable);
}

TEST_F(AManagedFamily, BringsNothingBackThatItsUserForbadeWhenItsCodeIsAnothersNow) {
    const std::string tool = program("tool");
    enterAgent("my.agent", tool);
    setAllowed(agent("my.agent"), false);
    rule("Label", "my.agent", "Allow");
    replace(tool, "Other Works");
    EXPECT_EQ(enterAgent("my.agent", tool).item->disposition(), kLaunchable);
    lift();
    EXPECT_EQ(agent("my.agent")->disposition(), kEnabled);
}

TEST_F(AManagedFamily, GoesWithItsLastItemWhenOnlyARuleForbidsItsDeveloper) {
    enterAgent("my.agent", program("tool"));
    rule("Developer", "Example Org", "Disallow");
    ASSERT_EQ(daemon_.registry().remove(owner_.uid, "8.my.agent").code, KSWErrorNone);
    EXPECT_EQ(developer("Example Org"), nullptr);
    daemon_.restart();
    EXPECT_TRUE(daemon_.registry().records().users().empty());
}

}  // namespace
}  // namespace ksw::daemon::test
