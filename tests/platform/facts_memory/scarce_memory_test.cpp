// An allocation that fails somewhere ends what was asked for with an error, and nothing else.
// A program of its own: it replaces the allocator, which ThreadSanitizer wants for itself.
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "platform/facts/launch_constraint.h"
#include "platform/facts/requirement.h"
#include "platform/host/peer_identity.h"
#include "tests/support/failing_allocation.h"
#include "tests/support/signing_support.h"

namespace ksw::facts {
namespace {

using CodeWithoutMemory = SigningTest;

/// Fails each allocation of the work in turn. The work says whether it could be done, which is so when none failed.
void failEachAllocation(const std::function<bool()>& work) {
    ASSERT_TRUE(work());  // which also makes what a process makes once
    bool hasHappened = true;
    for (std::size_t number = 0; hasHappened; ++number) {
        bool isDone = false;
        {
            const test::FailingAllocation failing(number);
            isDone = work();
            hasHappened = failing.hasHappened();
        }
        ASSERT_EQ(isDone, !hasHappened) << number;
    }
}

TEST(ARequirement, AnswersAnErrorWithoutMemory) {
    const std::string text = "!(team \"a long enough value to be on the heap\" or identifier b) and anchor trusted";
    ASSERT_TRUE(Requirement::parse(text).ok());
    std::int64_t code = 0;
    failEachAllocation([&] {
        const auto requirement = Requirement::parse(text);
        code = requirement ? static_cast<std::int64_t>(FormatError::LimitPassed) : requirement.error().code();
        return requirement.ok() && code == static_cast<std::int64_t>(FormatError::LimitPassed);
    });
}

TEST(ALaunchConstraint, AnswersAnErrorWithoutMemory) {
    ConstraintFacts facts;
    facts.team = "T";
    facts.anchor = Anchor::Maker;
    facts.identifier = "com.example.with-a-name-on-the-heap";
    facts.entitlements = {"com.example.an-entitlement-on-the-heap"};
    const Data requirement = *encodedRequirement(facts);
    failEachAllocation([&] { return LaunchConstraint::make(requirement, 1, 0).ok(); });
}

TEST_F(CodeWithoutMemory, IsNotJudgedToBeAnythingElse) {
    const std::string path = signedFile("file", "some code");
    const ForwardClock clock;
    CodeStatus status{};
    failEachAllocation([&] {
        Verifier verifier(clock);
        const Result<StaticCode> code = StaticCode::open(path, verifier);
        const auto facts = code ? code->facts() : Result<std::shared_ptr<const CodeFacts>>(code.error());
        status = facts ? status : static_cast<CodeStatus>(facts.error().code());
        return facts.ok() && (*facts)->identifier == "com.example.tool" && (*facts)->anchor == Anchor::Trusted;
    });
    EXPECT_EQ(status, CodeStatus::NoMemory);
}

TEST_F(CodeWithoutMemory, IsNotTrustedByCertificatesThatAreNoLongerThere) {
    const std::string path = signedFile("file", "some code");
    const std::string root = host_.folder().at("etc/kestrelwood/trust/root.pem");
    const Data certificate = contentOf(root);
    const ForwardClock clock;
    bool hasHappened = true;
    for (std::size_t number = 0; hasHappened; ++number) {
        Verifier verifier(clock);
        const Result<CodeFile> file = CodeFile::open(path);
        ASSERT_TRUE(verifier.judge(*file).ok()) << number;
        ASSERT_EQ(::unlink(root.c_str()), 0);
        {
            const test::FailingAllocation failing(number);
            EXPECT_FALSE(verifier.judge(*file).ok()) << number;
            hasHappened = failing.hasHappened();
        }
        EXPECT_EQ(facts::statusOf(verifier.judge(*file)), CodeStatus::NotTrusted) << number;
        writeContent(root, certificate);
    }
}

TEST_F(CodeWithoutMemory, OfAProcessIsNotJudgedToBeAnythingElse) {
    const AuditToken own = *host::auditTokenForPid(::getpid());
    const ForwardClock clock;
    failEachAllocation([&] {
        Verifier verifier(clock);
        const Result<RunningCode> code = RunningCode::open(own, verifier);
        return code.ok() && code->path().ok() && facts::statusOf(code->facts()) == CodeStatus::Unsigned;
    });
}

TEST_F(CodeWithoutMemory, StaysAsItWasWhenItCannotBeSignedOrStripped) {
    const std::string path = files_.writeFile("file", "some code");
    const SigningRequest asked = request(&signer());
    ASSERT_TRUE(sign(path, asked).ok() && strip(path).ok());  // which also makes what a process makes once
    // Each goes on until it could be done; it is done again to what the other made.
    for (const std::function<Status()>& work :
         {std::function<Status()>([&] { return sign(path, asked); }), {[&] { return strip(path); }}}) {
        const Data before = contentOf(path);
        bool hasHappened = true;
        for (std::size_t number = 0; hasHappened; ++number) {
            bool isDone = false;
            {
                const test::FailingAllocation failing(number);
                isDone = work().ok();
                hasHappened = failing.hasHappened();
            }
            ASSERT_EQ(isDone, !hasHappened) << number;
            ASSERT_EQ(contentOf(path) == before, hasHappened) << number;
            ASSERT_EQ(std::distance(std::filesystem::directory_iterator(files_.path()), {}), 1) << number;
        }
    }
    EXPECT_EQ(textOf(contentOf(path)), "some code");
}

}  // namespace
}  // namespace ksw::facts
