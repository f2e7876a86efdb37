#include "platform/host/authorization_service.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/host/peer_identity.h"
#include "platform/host/process_facts.h"
#include "tests/support/host_root.h"
#include "tests/support/scripted_bus.h"

namespace ksw::host {
namespace {

using test::BusBehaviour;

constexpr std::chrono::seconds kPatience(20);

/// A host whose authorisation service is asked about this process.
class TheAuthorizationService : public testing::Test {
protected:
    std::string busPath() const { return root_.folder().at("run/dbus/system_bus_socket"); }
    Result<bool> ask(std::chrono::milliseconds patience = kPatience) const {
        return isAuthorized(self_, "com.example.right", patience);
    }

    const test::HostRoot root_;
    const AuditToken self_ = *auditTokenForPid(::getpid());
};

TEST_F(TheAuthorizationService, IsToldWhichProcessWantsWhat) {
    const test::ScriptedBus bus(busPath(), BusBehaviour::Answers);
    const Result<bool> answer = ask();
    ASSERT_TRUE(answer.ok()) << answer.error().description();
    EXPECT_TRUE(*answer);
    ASSERT_EQ(bus.asked().size(), 1U);
    const test::AskedRight asked = bus.asked().front();
    EXPECT_EQ(asked.signature, "(sa{sv})sa{ss}us");
    EXPECT_EQ(asked.pid, static_cast<std::uint32_t>(::getpid()));
    EXPECT_EQ(asked.startTime, startTimeIn(*processFile(::getpid(), "stat")));
    EXPECT_EQ(asked.uid, ::geteuid());
    EXPECT_EQ(asked.action, "com.example.right");
}

TEST_F(TheAuthorizationService, MaySayNo) {
    const test::ScriptedBus bus(busPath(), BusBehaviour::GivesNoNumber);
    const Result<bool> answer = ask();
    ASSERT_TRUE(answer.ok());
    EXPECT_FALSE(*answer);
}

TEST_F(TheAuthorizationService, MayNotBeThere) {
    EXPECT_EQ(ask().error().code(), static_cast<std::int64_t>(ConnectionError::Unreachable));
    const test::ScriptedBus bus(busPath(), BusBehaviour::HasNoDesktop);
    EXPECT_EQ(ask().error().code(), static_cast<std::int64_t>(ConnectionError::Refused));
}

TEST_F(TheAuthorizationService, IsNotWaitedForLongerThanTheCallerHasPatience) {
    const test::ScriptedBus bus(busPath(), BusBehaviour::NeverAnswers);
    EXPECT_EQ(ask(std::chrono::milliseconds(50)).error().code(), ETIMEDOUT);
}

TEST_F(TheAuthorizationService, IsNotAskedAboutAProcessThatHasEnded) {
    const test::ScriptedBus bus(busPath(), BusBehaviour::Answers);
    AuditToken another = self_;
    another.words[6] ^= 1;
    another.words[7] ^= 1;
    const Result<bool> answer = isAuthorized(another, "com.example.right", kPatience);
    ASSERT_FALSE(answer.ok());
    EXPECT_TRUE(bus.asked().empty());
}

}  // namespace
}  // namespace ksw::host
