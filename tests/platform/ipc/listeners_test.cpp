#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "platform/host/host_root.h"
#include "platform/host/sys.h"
#include "platform/ipc/listener.h"
#include "tests/platform/ipc/test_service.h"

namespace ksw::test {
namespace {

using ipc::Domain;
using ipc::Listener;

std::string place() {
    return host::systemServicePath(kTestService);
}

TEST(AListener, MakesTheRunFolderAndAdmitsEveryone) {
    const HostRoot root;
    const Result<Listener> listener = Listener::open(kTestService, Domain::System, std::nullopt);
    ASSERT_TRUE(listener.ok()) << listener.error().description();
    struct ::stat facts {};
    ASSERT_EQ(::stat(place().c_str(), &facts), 0);
    EXPECT_TRUE(S_ISSOCK(facts.st_mode));
    EXPECT_EQ(facts.st_mode & 0777U, 0666U);
}

TEST(AListener, OfASessionAdmitsItsUserOnly) {
    const HostRoot root;
    const Result<Listener> listener = Listener::open(kTestService, Domain::Session, ::geteuid());
    ASSERT_TRUE(listener.ok());
    struct ::stat facts {};
    ASSERT_EQ(::stat(host::userServicePath(::geteuid(), kTestService).c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777U, 0600U);
}

TEST(AListener, ReplacesASocketThatNobodyListensOn) {
    const HostRoot root;
    {
        std::filesystem::create_directories(std::filesystem::path(place()).parent_path());
        const Result<UniqueFd> stale = host::sys::socket(AF_UNIX, SOCK_STREAM);
        ASSERT_TRUE(stale.ok());
        ASSERT_TRUE(host::sys::bindUnix(stale->get(), place()).ok());
    }
    EXPECT_TRUE(Listener::open(kTestService, Domain::System, std::nullopt).ok());
}

TEST(AListener, LeavesALivingServerAlone) {
    const HostRoot root;
    const TestServer server;
    const Result<Listener> second = Listener::open(kTestService, Domain::System, std::nullopt);
    ASSERT_FALSE(second.ok());
    EXPECT_TRUE(host::sys::isErrno(second.error(), EADDRINUSE)) << second.error().description();
    EXPECT_TRUE(testConnection()->call(kAdd, 1, 2).ok());
}

TEST(AListener, RemovesItsSocketWhenItGoes) {
    const HostRoot root;
    { const Result<Listener> listener = Listener::open(kTestService, Domain::System, std::nullopt); }
    EXPECT_FALSE(std::filesystem::exists(place()));
}

TEST(AListener, LeavesTheSocketOfItsSuccessor) {
    const HostRoot root;
    std::optional<Result<Listener>> first(Listener::open(kTestService, Domain::System, std::nullopt));
    ASSERT_TRUE((*first).ok());
    std::filesystem::remove(place());
    const Result<Listener> second = Listener::open(kTestService, Domain::System, std::nullopt);
    ASSERT_TRUE(second.ok());
    first.reset();
    EXPECT_TRUE(std::filesystem::exists(place()));
}

TEST(AListener, RefusesWhatIsNoServicesName) {
    const HostRoot root;
    const Result<Listener> listener = Listener::open("../elsewhere", Domain::System, std::nullopt);
    ASSERT_FALSE(listener.ok());
    EXPECT_TRUE(host::sys::isErrno(listener.error(), EINVAL));
}

/// Runs in a child, since the descriptors that a service manager hands over have fixed numbers.
int takeHandedOverSocket() {
    const Result<UniqueFd> socket = host::sys::socket(AF_UNIX, SOCK_STREAM);
    const std::string path = host::hostPath("/handed-over");
    if (!socket || !host::sys::bindUnix(socket->get(), path) || !host::sys::listen(socket->get(), 5)) {
        return 1;
    }
    ::dup2(socket->get(), 4);
    ::setenv("LISTEN_PID", std::to_string(::getpid()).c_str(), 1);
    ::setenv("LISTEN_FDS", "2", 1);
    ::setenv("LISTEN_FDNAMES", "com.velmont.other:com.velmont.test", 1);
    const Result<Listener> listener = Listener::open(kTestService, Domain::System, std::nullopt);
    return listener && listener->fd() == 4 && !std::filesystem::exists(place()) ? 0 : 2;
}

TEST(AListener, TakesTheSocketThatTheServiceManagerHandsOverUnderItsName) {
    const HostRoot root;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::_exit(takeHandedOverSocket());
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace ksw::test
