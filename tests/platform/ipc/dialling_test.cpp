// Who is at the other end, and what a client does before it knows.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "platform/ipc/dialer.h"
#include "tests/platform/ipc/test_service.h"
#include "tests/support/scripted_server.h"
#include "tests/support/sys_faults.h"

namespace ksw::test {
namespace {

using ipc::Domain;

void readOn(ScriptedConnection& connection) {
    while (connection.next()) {
    }
}

TEST(AServerOfAnotherUser, GetsNoByte) {
    const HostRoot root;
    const Uid other = ::geteuid() + 1;
    std::size_t received = 1;
    {
        const ScriptedServer server(kTestService, readOn, Domain::Session, other);
        ipc::Connection connection(kTestService, {Domain::Session, other}, testInterface());
        EXPECT_EQ(connectionErrorOf(connection.call(kAdd, 1, 2)), ConnectionError::WrongPeer);
        EXPECT_EQ(connectionErrorOf(connection.call(kAdd, 1, 2)), ConnectionError::WrongPeer);
        received = server.bytesReceived();
    }
    EXPECT_EQ(received, 0U);
}

TEST(AServerOfTheRightUser, IsFoundInTheSession) {
    const HostRoot root;
    const ScriptedServer server(
        kTestService,
        [](ScriptedConnection& connection) {
            while (const auto request = connection.next()) {
                connection.reply(request->serial, std::int64_t{3});
            }
        },
        Domain::Session, ::geteuid());
    ipc::Connection connection(kTestService, {Domain::Session, ::geteuid()}, testInterface());
    EXPECT_TRUE(connection.call(kAdd, 1, 2).ok());
}

TEST(ASystemService, BelongsToTheHostRootsOwner) {
    const HostRoot root;
    const auto place = ipc::servicePlace(kTestService, Domain::System, std::nullopt);
    ASSERT_TRUE(place.ok());
    EXPECT_EQ(place->owner, ::geteuid());
    EXPECT_EQ(place->path, root.folder().at("run/kestrelwood/com.velmont.test"));
}

TEST(AServicesName, IsNoPath) {
    for (const std::string_view name : {"", ".", "../x", "a/b", "a b"}) {
        EXPECT_EQ(connectionErrorOf(ipc::servicePlace(name, Domain::System, std::nullopt)),
                  ConnectionError::Unreachable)
            << name;
    }
}

TEST(ADialler, FollowsNoLink) {
    const HostRoot root;
    const TestServer server;
    const std::string folder = root.folder().at("run/kestrelwood");
    std::filesystem::create_symlink(folder, root.folder().at("run/link"));
    std::filesystem::create_symlink(folder + "/com.velmont.test", folder + "/linked");
    const Uid me = ::geteuid();
    EXPECT_TRUE(ipc::dial({folder + "/com.velmont.test", me}).ok());
    EXPECT_FALSE(ipc::dial({folder + "/linked", me}).ok());
    EXPECT_FALSE(ipc::dial({root.folder().at("run/link/com.velmont.test"), me}).ok());
}

TEST(ADialler, AcceptsNoServerWhenNobodyMayServe) {
    const HostRoot root;
    const TestServer server;
    const auto place = ipc::servicePlace(kTestService, Domain::System, std::nullopt);
    ASSERT_TRUE(place.ok());
    EXPECT_EQ(connectionErrorOf(ipc::dial({place->path, kNoUser})), ConnectionError::WrongPeer);
}

TEST(ARequestWithoutADescriptor, FailsAndTheNextOneGoesThrough) {
    const HostRoot root;
    const TestServer server;
    const auto connection = testConnection();
    {
        SysFaults faults;
        faults.failNth(host::sys::Call::Socket, 1, EMFILE);
        const auto reply = connection->call(kAdd, 1, 2);
        ASSERT_EQ(connectionErrorOf(reply), ConnectionError::Unreachable);
        EXPECT_NE(reply.error().localizedDescription().find("Too many open files"), std::string_view::npos);
    }
    EXPECT_TRUE(connection->call(kAdd, 1, 2).ok());
}

TEST(AConnectionOverABadNetwork, SurvivesShortTransfersAndInterruptions) {
    using host::sys::Call;
    const HostRoot root;
    const TestServer server;
    const auto connection = testConnection();
    SysFaults faults;
    faults.shorten(Call::Recv, 1);
    faults.shorten(Call::Send, 3);
    faults.interrupt(Call::Recv, 7);
    faults.interrupt(Call::Send, 5);
    faults.interrupt(Call::Connect, 2);
    for (int request = 0; request < 20; ++request) {
        const auto reply = connection->call(kEcho, "a text of some length");
        ASSERT_TRUE(reply.ok()) << reply.error().description();
        EXPECT_EQ(std::get<0>(*reply), "a text of some length");
    }
}

}  // namespace
}  // namespace ksw::test
