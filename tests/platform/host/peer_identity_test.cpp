#include "platform/host/peer_identity.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>

#include <sys/wait.h>

#include "platform/host/process_facts.h"
#include "platform/host/sys.h"
#include "tests/support/sys_faults.h"
#include "tests/support/temp_folder.h"

namespace ksw::host {
namespace {

/// A child process that waits until it is killed.
class Child {
public:
    Child() : pid_(::fork()) {
        if (pid_ == 0) {
            while (true) {
                ::pause();
            }
        }
    }
    ~Child() { end(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    pid_t pid() const { return pid_; }
    void kill() const { ::kill(pid_, SIGKILL); }
    /// Waits until it has ended, and leaves it a zombie.
    void awaitEnd() const {
        siginfo_t info{};
        EXPECT_EQ(::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT), 0);
    }
    void end() {
        if (!ended_) {
            kill();
            ::waitpid(pid_, nullptr, 0);
            ended_ = true;
        }
    }

private:
    pid_t pid_;
    bool ended_ = false;
};

void expectOwnToken(const AuditToken& token) {
    EXPECT_EQ(token.effectiveUid(), ::geteuid());
    EXPECT_EQ(token.realUid(), ::getuid());
    EXPECT_EQ(token.effectiveGid(), ::getegid());
    EXPECT_EQ(token.realGid(), ::getgid());
    EXPECT_EQ(token.pid(), ::getpid());
    EXPECT_NE(token.processIdentity(), 0U);
}

TEST(APeer, IsKnownByTheSocket) {
    auto pair = sys::socketPair(SOCK_STREAM);
    const auto peer = PeerIdentity::ofSocket(pair->first.get());
    ASSERT_TRUE(peer.ok());
    EXPECT_EQ(peer->uid(), ::geteuid());
    EXPECT_EQ(peer->pid(), ::getpid());
    expectOwnToken(peer->auditToken());
    EXPECT_EQ(peer->auditToken(), *auditTokenForPid(::getpid()));
}

TEST(APeer, IsKnownToTheOneWhoConnectsAndTheOneWhoListens) {
    const test::TempFolder folder;
    const UniqueFd listener = *sys::socket(AF_UNIX, SOCK_STREAM);
    ASSERT_TRUE(sys::bindUnix(listener.get(), folder.at("s")).ok());
    ASSERT_TRUE(sys::listen(listener.get(), 1).ok());
    const UniqueFd client = *sys::socket(AF_UNIX, SOCK_STREAM);
    ASSERT_TRUE(sys::connectUnix(client.get(), folder.at("s"), std::chrono::seconds(5)).ok());
    const auto accepted = sys::accept(listener.get(), false);
    expectOwnToken(PeerIdentity::ofSocket(client.get())->auditToken());
    expectOwnToken(PeerIdentity::ofSocket((*accepted)->get())->auditToken());
}

TEST(APeer, ThatHasEndedKeepsItsUserButIsFoundNoMore) {
    auto pair = sys::socketPair(SOCK_STREAM);
    const test::TempFolder folder;
    const UniqueFd listener = *sys::socket(AF_UNIX, SOCK_STREAM);
    ASSERT_TRUE(sys::bindUnix(listener.get(), folder.at("s")).ok());
    ASSERT_TRUE(sys::listen(listener.get(), 1).ok());
    const pid_t child = ::fork();
    if (child == 0) {
        const auto socket = sys::socket(AF_UNIX, SOCK_STREAM);
        ::_exit(sys::connectUnix(socket->get(), folder.at("s"), std::chrono::seconds(5)).ok() ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);
    const auto accepted = sys::accept(listener.get(), false);
    const auto peer = PeerIdentity::ofSocket((*accepted)->get());
    ASSERT_TRUE(peer.ok());
    EXPECT_EQ(peer->uid(), ::geteuid());
    EXPECT_EQ(revalidate(peer->auditToken()).error().code(), ESRCH);
}

TEST(ASocketWithoutAPeer, HasNoIdentity) {
    const UniqueFd lone = *sys::socket(AF_UNIX, SOCK_STREAM);
    EXPECT_FALSE(PeerIdentity::ofSocket(lone.get()).ok());
    EXPECT_EQ(PeerIdentity::ofSocket(-1).error().code(), EBADF);
}

TEST(APeer, IsKnownByItsPidWhereTheKernelHandsOutNoDescriptor) {
    auto pair = sys::socketPair(SOCK_STREAM);
    test::SysFaults faults;
    faults.failNth(sys::Call::GetSockOpt, 2, ENOPROTOOPT);
    const auto peer = PeerIdentity::ofSocket(pair->first.get());
    ASSERT_TRUE(peer.ok());
    expectOwnToken(peer->auditToken());
}

TEST(AnAuditToken, OfARunningProcessIsValid) {
    Child child;
    const auto token = auditTokenForPid(child.pid());
    ASSERT_TRUE(token.ok());
    EXPECT_TRUE(revalidate(*token).ok());
    EXPECT_TRUE(openProcess(*token).ok());
}

TEST(AnAuditToken, OfAProcessThatHasEndedIsRefused) {
    Child child;
    const auto token = auditTokenForPid(child.pid());
    child.kill();
    child.awaitEnd();
    EXPECT_EQ(revalidate(*token).error().code(), ESRCH) << "a zombie has ended";
    EXPECT_EQ(auditTokenForPid(child.pid()).error().code(), ESRCH);
    child.end();
    EXPECT_EQ(revalidate(*token).error().code(), ESRCH);
    EXPECT_EQ(auditTokenForPid(child.pid()).error().code(), ESRCH);
}

TEST(AnAuditToken, WhosePidBelongsToAnotherProcessByNowIsRefused) {
    AuditToken token = *auditTokenForPid(::getpid());
    token.words[7] ^= 1U;
    const Status status = revalidate(token);
    EXPECT_EQ(status.error().code(), ESRCH);
    EXPECT_EQ(status.error().localizedDescription(),
              "process " + std::to_string(::getpid()) + " has ended, and its number belongs to another process");
}

TEST(AnAuditToken, WithoutProcessOrIdentityIsRefused) {
    EXPECT_EQ(revalidate(AuditToken{}).error().code(), ESRCH);
    AuditToken token = *auditTokenForPid(::getpid());
    token.words[6] = token.words[7] = 0;
    EXPECT_EQ(revalidate(token).error().code(), ESRCH);
    token.words[4] = 0xFFFFFFFFU;
    EXPECT_EQ(revalidate(token).error().code(), ESRCH);
}

TEST(AStartTime, IsReadBehindAnyName) {
    const std::string words = " S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 4711 20";
    EXPECT_EQ(startTimeIn("12 (name)" + words), 4711U);
    EXPECT_EQ(startTimeIn("12 (a) S 1 (b) )" + words), 4711U);
    EXPECT_EQ(startTimeIn("12 name"), std::nullopt);
    EXPECT_EQ(startTimeIn("12 (name) S 1 2"), std::nullopt);
    EXPECT_EQ(startTimeIn(""), std::nullopt);
}

}  // namespace
}  // namespace ksw::host
