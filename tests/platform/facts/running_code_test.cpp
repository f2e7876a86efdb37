#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "platform/facts/code.h"
#include "platform/host/peer_identity.h"
#include "platform/host/sys.h"
#include "tests/support/child_program.h"
#include "tests/support/signing_support.h"

namespace ksw::facts {
namespace {

using ARunningProgram = SigningTest;

using test::ChildCat;
using test::ChildProgram;

std::string identifierOf(const Result<RunningCode>& code) {
    if (!code) {
        return code.error().description();
    }
    const auto facts = code->facts();
    return facts ? (*facts)->identifier : facts.error().description();
}

TEST_F(ARunningProgram, HasTheFactsOfItsFile) {
    const std::string path = signedProgram("/bin/cat", "cat", "com.example.cat");
    const ChildCat cat(path);
    Verifier verifier;
    const Result<RunningCode> code = RunningCode::open(cat.token(), verifier);
    EXPECT_EQ(identifierOf(code), "com.example.cat");
    EXPECT_EQ((*code->facts())->format, "elf executable");
    EXPECT_EQ(*code->path(), path);
    const Requirement met = *Requirement::parse("anchor trusted");
    EXPECT_TRUE(code->checkValidity(Checks::Default, &met).ok());
    const Requirement other = *Requirement::parse("anchor velmont");
    EXPECT_EQ(facts::statusOf(code->checkValidity(Checks::Default, &other)), CodeStatus::RequirementNotMet);
}

TEST_F(ARunningProgram, ThatIsNotSignedIsUnsigned) {
    const ChildCat cat("/bin/cat");
    Verifier verifier;
    EXPECT_EQ(facts::statusOf(RunningCode::open(cat.token(), verifier)->facts()), CodeStatus::Unsigned);
}

TEST_F(ARunningProgram, WhoseFileWasDeletedKeepsItsFacts) {
    const std::string path = signedProgram("/bin/cat", "cat", "com.example.cat");
    const ChildCat cat(path);
    std::filesystem::remove(path);
    Verifier verifier;
    const Result<RunningCode> code = RunningCode::open(cat.token(), verifier);
    EXPECT_EQ(identifierOf(code), "com.example.cat");
    EXPECT_EQ(facts::statusOf(code->path()), CodeStatus::NoPath);
}

TEST_F(ARunningProgram, WhoseFileWasReplacedKeepsItsFacts) {
    const std::string path = signedProgram("/bin/cat", "cat", "com.example.cat");
    const std::string other = signedProgram("/bin/cat", "other", "com.example.other");
    const ChildCat cat(path);
    std::filesystem::rename(other, path);
    Verifier verifier;
    const Result<RunningCode> code = RunningCode::open(cat.token(), verifier);
    EXPECT_EQ(identifierOf(code), "com.example.cat");
    EXPECT_EQ(facts::statusOf(code->path()), CodeStatus::NoPath);
}

TEST_F(ARunningProgram, FromMemoryHasTheFactsOfWhatRuns) {
    const Data content = contentOf(signedProgram("/bin/cat", "cat", "com.example.memory"));
    const UniqueFd memory = *host::sys::memoryFile("cat");
    ASSERT_EQ(::write(memory.get(), content.data(), content.size()), static_cast<ssize_t>(content.size()));
    ChildProgram program([&] {
        char name[] = "cat";
        char* words[] = {name, nullptr};
        ::fexecve(memory.get(), words, environ);
    });
    program.tell("hello\n");
    program.awaitAnswer();
    Verifier verifier;
    const Result<RunningCode> code = RunningCode::open(program.token(), verifier);
    EXPECT_EQ(identifierOf(code), "com.example.memory");
    EXPECT_EQ(facts::statusOf(code->path()), CodeStatus::NoPath);
}

TEST_F(ARunningProgram, ThatBecomesAnotherIsAnErrorOrTheOther) {
    const std::string shell = signedProgram("/bin/sh", "sh", "com.example.shell");
    const std::string cat = signedProgram("/bin/cat", "cat", "com.example.cat");
    ChildProgram program({shell, "-c", "echo ready; read line; exec \"$0\"", cat});
    program.awaitAnswer();
    const AuditToken token = program.token();
    Verifier verifier;
    const Result<RunningCode> before = RunningCode::open(token, verifier);
    ASSERT_TRUE(before.ok());
    program.tell("go\n");
    program.tell("hello\n");
    program.awaitAnswer();
    EXPECT_EQ(facts::statusOf(before->facts()), CodeStatus::ProcessChanged);
    EXPECT_EQ(identifierOf(RunningCode::open(token, verifier)), "com.example.cat");
}

TEST_F(ARunningProgram, ThatHasEndedIsGone) {
    ChildCat cat(signedProgram("/bin/cat", "cat"));
    const AuditToken token = cat.token();
    Verifier verifier;
    const Result<RunningCode> code = RunningCode::open(token, verifier);
    ASSERT_TRUE(code.ok());
    cat.end();
    EXPECT_EQ(facts::statusOf(code->facts()), CodeStatus::ProcessGone);
    EXPECT_EQ(facts::statusOf(RunningCode::open(token, verifier)), CodeStatus::ProcessGone);
}

TEST_F(ARunningProgram, ThatHasEndedIsGoneBeforeAnyoneHasWaitedForIt) {
    const std::string path = signedProgram("/bin/cat", "cat");
    ChildProgram program({path});
    program.tell("hello\n");
    program.awaitAnswer();
    const AuditToken token = program.token();
    ASSERT_EQ(::kill(token.pid(), SIGKILL), 0);
    siginfo_t info{};
    ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(token.pid()), &info, WEXITED | WNOWAIT), 0);
    Verifier verifier;
    EXPECT_EQ(facts::statusOf(RunningCode::open(token, verifier)), CodeStatus::ProcessGone);
}

TEST_F(ARunningProgram, ThatIsAScriptIsItsInterpreter) {
    const std::string shell = signedProgram("/bin/sh", "sh", "com.example.shell");
    const std::string script =
        files_.writeFile("script", "#!" + shell + "\nread line; echo \"$line\"; read line\n");
    ASSERT_EQ(::chmod(script.c_str(), 0755), 0);
    const Status status = sign(script, request(&signer(), "com.example.script"));
    ASSERT_TRUE(status.ok()) << status.error().description();
    EXPECT_EQ((*judged(script))->identifier, "com.example.script");
    const ChildCat running(script);
    Verifier verifier;
    EXPECT_EQ(identifierOf(RunningCode::open(running.token(), verifier)), "com.example.shell");
}

TEST_F(ARunningProgram, ThatKeepsBecomingAnotherHasTheFactsOfOneOfThem) {
    const std::string one = signedProgram("/bin/sh", "one", "com.example.one");
    const std::string other = signedProgram("/bin/sh", "other", "com.example.other");
    const std::string turn = files_.writeFile("turn", R"(
if [ "$1" = 400 ]; then echo ready; fi
if [ "$1" = 0 ]; then read line; fi
exec "$3" "$0" $(($1 - 1)) "$3" "$2"
)");
    const ChildProgram program({one, turn, "400", one, other});
    program.awaitAnswer();
    const AuditToken token = program.token();
    Verifier verifier;
    int answers = 0;
    for (int question = 0; question < 400 / kSlowness; ++question) {
        const Result<RunningCode> code = RunningCode::open(token, verifier);
        const auto facts = code ? code->facts() : Result<std::shared_ptr<const CodeFacts>>(code.error());
        if (facts) {
            ++answers;
            EXPECT_TRUE((*facts)->identifier == "com.example.one" || (*facts)->identifier == "com.example.other");
        } else {
            EXPECT_EQ(facts::statusOf(facts), CodeStatus::ProcessChanged) << facts.error().description();
        }
    }
    EXPECT_GT(answers, 0);
}

TEST_F(ARunningProgram, IsToldFromAnotherWithItsNumber) {
    const ChildCat cat(signedProgram("/bin/cat", "cat"));
    AuditToken token = cat.token();
    Verifier verifier;
    token.words[7] ^= 1U;
    EXPECT_EQ(facts::statusOf(RunningCode::open(token, verifier)), CodeStatus::ProcessGone);
    token.words[6] = token.words[7] = 0;
    EXPECT_EQ(facts::statusOf(RunningCode::open(token, verifier)), CodeStatus::ProcessGone);
    EXPECT_EQ(facts::statusOf(RunningCode::open(AuditToken{}, verifier)), CodeStatus::ProcessGone);
}

/// Makes the next process of this namespace have the number. False where that is not permitted.
bool setNextPid(pid_t pid) {
    const Result<UniqueFd> file = host::sys::open("/proc/sys/kernel/ns_last_pid", O_WRONLY);
    const std::string text = std::to_string(pid - 1);
    return file && ::write(file->get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

pid_t startWaiting() {
    const pid_t pid = ::fork();
    if (pid == 0) {
        while (true) {
            ::pause();
        }
    }
    return pid;
}

void end(pid_t pid) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
}

enum Reuse : int { Held = 0, NotPermitted = 1, AnothersFacts = 2, NoToken = 3, OtherNumber = 4 };

/// One process ends, and another gets its number: once before it is asked for, once in between.
Reuse reuseOnce(Verifier& verifier, pid_t number) {
    if (!setNextPid(number) || startWaiting() != number) {
        return OtherNumber;
    }
    const Result<AuditToken> token = host::auditTokenForPid(number);
    const Result<RunningCode> opened =
        token ? RunningCode::open(*token, verifier) : Result<RunningCode>(token.error());
    end(number);
    if (!opened) {
        return NoToken;
    }
    if (!setNextPid(number) || startWaiting() != number) {
        return OtherNumber;
    }
    const bool isTold = facts::statusOf(opened->facts()) == CodeStatus::ProcessGone &&
                        facts::statusOf(RunningCode::open(*token, verifier)) == CodeStatus::ProcessGone;
    end(number);
    return isTold ? Held : AnothersFacts;
}

/// As the first process of a namespace that has its own numbers.
Reuse reuseInNamespace() {
    constexpr pid_t kNumber = 300;
    if (::mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0 || !setNextPid(kNumber)) {
        return NotPermitted;
    }
    Verifier verifier;
    for (int turn = 0; turn < 200 / kSlowness; ++turn) {
        if (const Reuse reuse = reuseOnce(verifier, kNumber); reuse != Held) {
            return reuse;
        }
    }
    return Held;
}

Reuse reuseInChild() {
    const int userNamespace = ::geteuid() == 0 ? 0 : CLONE_NEWUSER;
    if (::unshare(userNamespace | CLONE_NEWPID | CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return NotPermitted;
    }
    const pid_t first = ::fork();
    if (first == 0) {
        ::_exit(reuseInNamespace());
    }
    int status = 0;
    ::waitpid(first, &status, 0);
    return WIFEXITED(status) ? static_cast<Reuse>(WEXITSTATUS(status)) : AnothersFacts;
}

TEST_F(ARunningProgram, IsToldFromALaterOneThatGotItsNumber) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(reuseInChild());
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    // Where no namespace may be made, the test with another identity stands for it.
    EXPECT_TRUE(WEXITSTATUS(status) == Held || WEXITSTATUS(status) == NotPermitted) << WEXITSTATUS(status);
    RecordProperty("reuse", WEXITSTATUS(status));
}

}  // namespace
}  // namespace ksw::facts
