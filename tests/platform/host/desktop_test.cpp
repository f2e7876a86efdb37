// Telling the user something over the session's bus, whatever sits at its other end.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <optional>

#include <unistd.h>

#include "platform/host/bus_connection.h"
#include "platform/host/desktop.h"
#include "tests/support/environment.h"
#include "tests/support/host_root.h"
#include "tests/support/manual_clock.h"
#include "tests/support/scripted_bus.h"

namespace ksw::host {
namespace {

using std::chrono_literals::operator""ms;
using test::BusBehaviour;
using test::ScriptedBus;
using ::testing::SizeIs;

constexpr std::chrono::milliseconds kLong = std::chrono::minutes(1);

class ADesktop : public testing::Test {
protected:
    void start(BusBehaviour behaviour) { bus_.emplace(path_, behaviour); }
    /// What became of a notice, as its number or as the error's code.
    static std::int64_t numberOf(const Result<std::uint32_t>& shown) {
        return shown ? std::int64_t{*shown} : -shown.error().code();
    }

    const test::HostRoot root_;
    const std::string path_ = root_.folder().at("bus folder/bus");
    const test::ScopedVariable address_{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/bus%20folder/bus,guid=00"};
    std::optional<ScriptedBus> bus_;
    test::ManualClock clock_;
    Desktop desktop_{kLong, clock_};
};

TEST_F(ADesktop, ShowsANotice) {
    start(BusBehaviour::Answers);
    EXPECT_EQ(numberOf(desktop_.show({"Title", "Some text.", Urgency::Critical, 0})), 1);
    const auto shown = bus_->shown();
    ASSERT_THAT(shown, SizeIs(1));
    EXPECT_EQ(shown[0].application, "Kestrelwood");
    EXPECT_EQ(shown[0].summary, "Title");
    EXPECT_EQ(shown[0].body, "Some text.");
    EXPECT_EQ(shown[0].replaces, 0U);
    EXPECT_EQ(shown[0].urgency, 2);
    EXPECT_EQ(shown[0].signature, "susssasa{sv}i");
}

TEST_F(ADesktop, PutsANoticeInThePlaceOfAnother) {
    start(BusBehaviour::Answers);
    EXPECT_EQ(numberOf(desktop_.show({"First", ""})), 1);
    EXPECT_EQ(numberOf(desktop_.show({"Second", ""})), 2);
    EXPECT_EQ(numberOf(desktop_.show({"Third", "", Urgency::Normal, 1})), 1);
    ASSERT_THAT(bus_->shown(), SizeIs(3));
    EXPECT_EQ(bus_->shown()[2].replaces, 1U);
}

TEST_F(ADesktop, IsGivenNoMarkup) {
    start(BusBehaviour::Answers);
    ASSERT_EQ(numberOf(desktop_.show({"<b>", "<b>a & b</b>"})), 1);
    EXPECT_EQ(bus_->shown()[0].summary, "<b>");
    EXPECT_EQ(bus_->shown()[0].body, "&lt;b&gt;a &amp; b&lt;/b&gt;");
}

TEST_F(ADesktop, ShowsTextsOfEveryLength) {
    start(BusBehaviour::Answers);
    for (std::size_t length = 0; length < 20; ++length) {
        ASSERT_GT(numberOf(desktop_.show({std::string(length, 's'), std::string(2 * length, 'b')})), 0);
        EXPECT_EQ(bus_->shown().back().summary.size(), length);
        EXPECT_EQ(bus_->shown().back().body.size(), 2 * length);
    }
}

TEST_F(ADesktop, MayAnswerInPiecesAmongOtherThings) {
    start(BusBehaviour::AnswersInPieces);
    EXPECT_EQ(numberOf(desktop_.show({"Title", ""})), 1);
}

TEST_F(ADesktop, IsNotThereWithoutABus) {
    EXPECT_EQ(numberOf(desktop_.show({"Title", ""})), -static_cast<std::int64_t>(ConnectionError::Unreachable));
}

/// What a bus does wrong, and what becomes of a notice.
TEST_F(ADesktop, FailsANoticeWhateverTheBusDoes) {
    const std::pair<BusBehaviour, ConnectionError> wrongs[] = {
        {BusBehaviour::LetsNobodyIn, ConnectionError::Refused},
        {BusBehaviour::HasNoDesktop, ConnectionError::Refused},
        {BusBehaviour::GivesNoNumber, ConnectionError::ReplyInvalid},
        {BusBehaviour::GoesAway, ConnectionError::Unreachable},
        {BusBehaviour::AnswersNonsense, ConnectionError::ReplyInvalid},
        {BusBehaviour::AnswersTooMuch, ConnectionError::ReplyInvalid},
        {BusBehaviour::SaysEverythingElse, ConnectionError::ReplyInvalid}};
    for (const auto& [behaviour, code] : wrongs) {
        start(behaviour);
        const Result<std::uint32_t> shown = desktop_.show({"Title", ""});
        ASSERT_FALSE(shown);
        EXPECT_EQ(shown.error().domain(), kConnectionErrorDomain);
        EXPECT_EQ(shown.error().code(), static_cast<std::int64_t>(code)) << shown.error().description();
        bus_.reset();
        ::unlink(path_.c_str());
    }
}

TEST_F(ADesktop, NamesWhatTheBusRefused) {
    start(BusBehaviour::HasNoDesktop);
    EXPECT_EQ(desktop_.show({"Title", ""}).error().localizedDescription(),
              "Notify: org.freedesktop.DBus.Error.ServiceUnknown");
}

TEST_F(ADesktop, ThatIsFrozenIsLeftAloneForAWhile) {
    for (const BusBehaviour behaviour : {BusBehaviour::NeverAnswers, BusBehaviour::NeverGreets}) {
        start(behaviour);
        Desktop desktop(20ms, clock_);
        EXPECT_EQ(numberOf(desktop.show({"Title", ""})), -ETIMEDOUT);
        EXPECT_EQ(desktop.show({"Title", ""}).error().localizedDescription(),
                  "the desktop was late a short while ago");
        EXPECT_EQ(bus_->connections(), 1);
        clock_.advance(Desktop::kRest - std::chrono::nanoseconds(1));
        EXPECT_NE(numberOf(desktop.show({"Title", ""})), -ETIMEDOUT);
        clock_.advance(std::chrono::nanoseconds(1));
        EXPECT_EQ(numberOf(desktop.show({"Title", ""})), -ETIMEDOUT);
        EXPECT_EQ(bus_->connections(), 2);
        bus_.reset();
        ::unlink(path_.c_str());
    }
}

TEST_F(ADesktop, IsGivenFiveSeconds) {
    EXPECT_EQ(Desktop::kPatience, std::chrono::seconds(5));
}

TEST(TheSessionsBus, IsWhereItsAddressSays) {
    const test::HostRoot root;
    const std::string& folder = root.folder().path();
    const std::pair<const char*, std::optional<std::string>> addresses[] = {
        {"unix:path=/run/user/1/bus", folder + "/run/user/1/bus"},
        {"tcp:host=localhost;unix:guid=1,path=/a%3Bb;unix:path=/c", folder + "/a;b"},
        {"unix:abstract=/tmp/x;unix:path=/c", folder + "/c"},
        {"unix:path=relative", std::nullopt},
        {"unix:", std::nullopt},
        {"unix:path", std::nullopt},
        {";;,,=", std::nullopt},
        {"disabled:", std::nullopt}};
    for (const auto& [address, path] : addresses) {
        const test::ScopedVariable variable("DBUS_SESSION_BUS_ADDRESS", address);
        EXPECT_EQ(sessionBusPath(), path) << address;
    }
}

TEST(TheSessionsBus, IsInTheSessionsFolderWithoutAnAddress) {
    const test::HostRoot root;
    const test::ScopedVariable address("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    const test::ScopedVariable folder("XDG_RUNTIME_DIR", "/run/user/7");
    EXPECT_EQ(sessionBusPath(), root.folder().path() + "/run/user/7/bus");
}

TEST(TheSessionsBus, IsNowhereWithoutEither) {
    const test::ScopedVariable address("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
    const test::ScopedVariable folder("XDG_RUNTIME_DIR", std::nullopt);
    EXPECT_EQ(sessionBusPath(), std::nullopt);
}

}  // namespace
}  // namespace ksw::host
