// Telling users' notification services which parent applications there are.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <mutex>

#include <sys/wait.h>
#include <unistd.h>

#include <kestrelwood/KSWFunctions.h>

#include "client/protocol/notification_service.h"
#include "client/protocol/services.h"
#include "platform/base/text.h"
#include "platform/host/log_capture.h"
#include "platform/ipc/server.h"
#include "platform/session/parent_apps.h"
#include "tests/support/host_root.h"
#include "tests/support/scripted_server.h"

namespace ksw::session {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr Uid kOther = 501;
constexpr std::string_view kApps = "/Applications/Ledger.app";

/// The notification service of the user who runs the tests.
class Service {
public:
    explicit Service(Uid place) {
        ipc::Dispatcher dispatcher;
        dispatcher.on(protocol::notifications::kRegisterParentApps,
                      [this](const ipc::RequestContext& context, ipc::Responder<bool> responder,
                             const std::optional<std::string>& apps) {
                          const std::lock_guard lock(mutex_);
                          context.keep<int>([this] { return std::make_shared<int>(++connections_); });
                          registered_.push_back(apps.value_or("null"));
                          responder.answer(true);
                      });
        EXPECT_TRUE(server_.listen(kNotificationsService, ipc::Domain::Session, std::move(dispatcher), place));
        EXPECT_TRUE(server_.start());
    }
    ~Service() { server_.stop(); }

    std::vector<std::string> registered() {
        const std::lock_guard lock(mutex_);
        return registered_;
    }
    int connections() {
        const std::lock_guard lock(mutex_);
        return connections_;
    }

private:
    ipc::Server server_;
    std::mutex mutex_;  // guards both below
    std::vector<std::string> registered_;
    int connections_ = 0;
};

class ARegistrationOfParentApps : public ::testing::Test {
protected:
    void ownTheConsole() const { root_.folder().writeFile("dev/console", ""); }
    std::string placeOf(Uid uid) const {
        return root_.folder().at("run/user/" + std::to_string(uid) + "/kestrelwood/" +
                                 std::string(kNotificationsService));
    }
    /// The line for a user whose service nobody serves.
    std::string unreached(Uid uid) const {
        return format(
            "RegisterParentApps: uid=%d, error Error Domain=KSWConnectionErrorDomain Code=1 "
            "\"connect(\"%@\"): No such file or directory\"",
            uid, placeOf(uid));
    }
    std::vector<std::string> logged() const { return log_.at(host::LogLevel::Debug); }

    const test::HostRoot root_;
    const host::LogCapture log_;
    const Uid user_ = ::geteuid();
};

TEST_F(ARegistrationOfParentApps, ReachesTheUsersService) {
    ownTheConsole();
    Service service(user_);
    RegisterParentApps(std::string(kApps), user_);
    EXPECT_THAT(service.registered(), ElementsAre(kApps));
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ARegistrationOfParentApps, OpensOneConnectionForTheConsolesUser) {
    ownTheConsole();
    Service service(user_);
    RegisterParentApps(std::string(kApps), user_);
    EXPECT_EQ(service.connections(), 1);
}

TEST_F(ARegistrationOfParentApps, ReachesTheConsolesUserToo) {
    ownTheConsole();
    Service service(user_);
    RegisterParentApps(std::string(kApps), kOther);
    EXPECT_THAT(service.registered(), ElementsAre(kApps));
    EXPECT_EQ(service.connections(), 1);
    EXPECT_THAT(logged(), ElementsAre(unreached(kOther)));
}

TEST_F(ARegistrationOfParentApps, GoesToUserZeroWhenNobodyKnowsWhoOwnsTheConsole) {
    RegisterParentApps(std::string(kApps), kOther);
    EXPECT_THAT(logged(), ElementsAre(unreached(kOther), unreached(0)));
}

TEST_F(ARegistrationOfParentApps, IsMadeOnceForUserZeroWhenNobodyKnowsWhoOwnsTheConsole) {
    RegisterParentApps(std::string(kApps), 0);
    EXPECT_THAT(logged(), ElementsAre(unreached(0)));
}

TEST_F(ARegistrationOfParentApps, HidesItsErrorFromThePublicLog) {
    RegisterParentApps(std::string(kApps), 0);
    const auto lines = log_.lines();
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_EQ(lines[0].publicForm, "RegisterParentApps: uid=0, error <private>");
    EXPECT_EQ(lines[0].category, "main");
}

TEST_F(ARegistrationOfParentApps, DoesNothingWithoutAText) {
    Service service(user_);
    RegisterParentApps(std::nullopt, user_);
    EXPECT_THAT(service.registered(), IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ARegistrationOfParentApps, SendsAnEmptyText) {
    ownTheConsole();
    Service service(user_);
    RegisterParentApps("", user_);
    EXPECT_THAT(service.registered(), ElementsAre(""));
}

TEST_F(ARegistrationOfParentApps, DoesNothingForEveryUser) {
    ownTheConsole();
    Service service(user_);
    RegisterParentApps(std::string(kApps), 4294967294U);
    EXPECT_THAT(service.registered(), IsEmpty());
    EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(ARegistrationOfParentApps, TellsNothingToAServiceThatAnotherUserRuns) {
    ownTheConsole();
    Service impostor(kOther);
    Service service(user_);
    RegisterParentApps(std::string(kApps), kOther);
    EXPECT_THAT(impostor.registered(), IsEmpty());
    EXPECT_THAT(service.registered(), ElementsAre(kApps));
    EXPECT_THAT(logged(), ElementsAre(format(
                              "RegisterParentApps: uid=501, error Error Domain=KSWConnectionErrorDomain Code=2 "
                              "\"\"%@\": who listens there is user %d, not 501\"",
                              placeOf(kOther), user_)));
}

TEST_F(ARegistrationOfParentApps, IsNotHeldUpByAServiceThatIsFrozen) {
    ownTheConsole();
    test::ScriptedServer frozen(
        kNotificationsService,
        [](test::ScriptedConnection& connection) {
            while (connection.next()) {
            }
        },
        ipc::Domain::Session, user_);
    UserRequests requests(std::chrono::milliseconds(50));
    registerParentApps(std::string(kApps), user_, requests);
    registerParentApps(std::string(kApps), user_, requests);
    EXPECT_EQ(log_.count(format("RegisterParentApps: uid=%d, error Error Domain=KSWConnectionErrorDomain Code=3 "
                                "\"a service of user %d has not answered in time\"",
                                user_, user_)),
              2U);
    EXPECT_EQ(frozen.connections(), 1);
}

TEST_F(ARegistrationOfParentApps, IsMadeInAForkedChildToo) {
    ownTheConsole();
    Service service(user_);
    RegisterParentApps("parent", user_);
    const pid_t child = ::fork();
    if (child == 0) {
        RegisterParentApps("child", user_);
        ::_exit(0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_THAT(service.registered(), ElementsAre("parent", "child"));
}

}  // namespace
}  // namespace ksw::session
