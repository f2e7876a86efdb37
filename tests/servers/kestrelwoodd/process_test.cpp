#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>

#include "platform/host/peer_identity.h"
#include "servers/kestrelwoodd/bundle_of_process.h"
#include "tests/servers/kestrelwoodd/daemon_inside.h"

extern char** environ;  // NOLINT(readability-redundant-declaration)

namespace ksw::daemon::test {
namespace {

std::string bytesOf(const char* path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A process that runs until its standard input ends, from the executable at a path.
class Child {
public:
    explicit Child(const std::string& program) {
        int ends[2];
        EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[0], 0);
        std::string name = program;
        char* arguments[] = {name.data(), nullptr};
        EXPECT_EQ(posix_spawn(&pid_, program.c_str(), &actions, nullptr, arguments, environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[0]);
        input_ = UniqueFd(ends[1]);
    }
    ~Child() { end(); }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    AuditToken token() const {
        Result<AuditToken> token = host::auditTokenForPid(pid_);
        EXPECT_TRUE(token.ok());
        return *token;
    }
    void end() {
        input_.reset();
        if (pid_ > 0) {
            waitpid(pid_, nullptr, 0);
            pid_ = 0;
        }
    }

private:
    pid_t pid_ = 0;
    UniqueFd input_;
};

/// An application that runs, as the user who runs the test.
class AProcess : public testing::Test {
protected:
    AProcess() {
        program_ = daemon_.folder().writeFile("My.app/Contents/Linux/my", bytesOf("/bin/cat"));
        chmod(program_.c_str(), 0755);
        daemon_.writeJob("My.app/Contents/my.plist", "inside");
    }
    Answer ask(Operations::Operation operation, const AuditToken& token, const Caller& caller, KSWItemType type) {
        const std::optional<AuditToken> given = token;
        const std::optional<URL> url =
            (type & KSWItemTypeLegacyBit) != 0 ? jobURL("inside") : URL::fileURL("Contents/my.plist");
        const std::optional<Dictionary> job = jobNamed("inside");
        return (daemon_.operations().*operation)({Owner::Process, given, kNoURL, type, url, job, caller.uid},
                                                 caller);
    }

    DaemonInside daemon_;
    std::string program_;
    const Caller self_{geteuid(), getegid()};
    const Caller stranger_ = geteuid() == 0 ? anOwner() : anOther();
};

TEST_F(AProcess, StandsForTheApplicationThatItIsOf) {
    const Child child(program_);
    const Answer answer = ask(&Operations::enter, child.token(), self_, KSWItemTypeAgent);
    ASSERT_EQ(answer.code, KSWErrorNone);
    EXPECT_EQ(answer.item->url()->path(), daemon_.folder().at("My.app/Contents/my.plist"));
    EXPECT_EQ(ask(&Operations::fetch, child.token(), self_, KSWItemTypeAgent).item, answer.item);
    EXPECT_EQ(ask(&Operations::effectiveDisposition, child.token(), self_, KSWItemTypeAgent).disposition, 3U);
    EXPECT_EQ(ask(&Operations::remove, child.token(), self_, KSWItemTypeAgent).code, KSWErrorNone);
}

TEST_F(AProcess, ThatIsOfNoApplicationStandsForNoBundle) {
    const Child child("/bin/cat");
    EXPECT_EQ(ask(&Operations::enter, child.token(), self_, KSWItemTypeAgent).code, KSWErrorInvalidParameter);
    EXPECT_EQ(ask(&Operations::enter, child.token(), self_, kLegacyAgent).code, KSWErrorNone);
}

TEST_F(AProcess, OfAnotherUserStandsForNothing) {
    const Child child(program_);
    EXPECT_EQ(ask(&Operations::enter, child.token(), stranger_, KSWItemTypeAgent).code, KSWErrorPermissionDenied);
}

TEST_F(AProcess, OfAnyUserStandsForItsApplicationWhenRootSaysSo) {
    const Child child(program_);
    EXPECT_EQ(ask(&Operations::enter, child.token(), kRoot, KSWItemTypeAgent).code, KSWErrorNone);
}

TEST_F(AProcess, ThatHasEndedStandsForNothing) {
    Child child(program_);
    const AuditToken token = child.token();
    child.end();
    for (const Caller& caller : {self_, kRoot}) {
        EXPECT_EQ(ask(&Operations::enter, token, caller, KSWItemTypeAgent).code, KSWErrorPermissionDenied);
    }
}

TEST_F(AProcess, IsNotTakenForALaterOneWithItsNumber) {
    const Child child(program_);
    AuditToken forged = child.token();
    forged.words[7] ^= 1U;
    EXPECT_EQ(ask(&Operations::enter, forged, kRoot, KSWItemTypeAgent).code, KSWErrorPermissionDenied);
}

TEST_F(AProcess, IsNotTakenForTheCallersByTheTokensOwnWord) {
    const Child child(program_);
    AuditToken forged = child.token();
    forged.words[0] = stranger_.uid;
    forged.words[2] = stranger_.uid;
    EXPECT_EQ(ask(&Operations::enter, forged, stranger_, KSWItemTypeAgent).code, KSWErrorPermissionDenied);
}

TEST_F(AProcess, ThatNobodyCouldHaveNamedIsRefused) {
    for (const std::uint32_t pid : {0U, 0xFFFFFFFFU, 0x7FFFFFFFU}) {
        AuditToken token;
        token.words[4] = pid;
        EXPECT_EQ(ask(&Operations::enter, token, kRoot, KSWItemTypeAgent).code, KSWErrorPermissionDenied);
    }
}

}  // namespace
}  // namespace ksw::daemon::test
