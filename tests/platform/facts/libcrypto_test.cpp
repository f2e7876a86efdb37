#include "platform/facts/libcrypto.h"

#include <sys/stat.h>
#include <unistd.h>

#include "platform/facts/launch_constraint.h"
#include "platform/host/log_capture.h"
#include "platform/host/peer_identity.h"
#include "platform/host/sys.h"
#include "tests/support/environment.h"
#include "tests/support/signing_support.h"

namespace ksw::facts {
namespace {

using AHostWithoutLibcrypto = SigningTest;
using TheHostsLibcrypto = SigningTest;

TEST_F(AHostWithoutLibcrypto, HasNoSignedCodeAndSaysSoOnce) {
    const std::string path = signedFile("file", "some code");
    ASSERT_TRUE(judged(path).ok());
    const ScopedLibCryptoName absent("libcrypto-that-is-not-there.so");
    const host::LogCapture capture;
    EXPECT_EQ(statusOf(path), CodeStatus::Unsigned);
    EXPECT_EQ(statusOf(path), CodeStatus::Unsigned);
    EXPECT_EQ(facts::statusOf(sign(path, request(&signer()))), CodeStatus::NoCryptography);
    EXPECT_EQ(facts::statusOf(strip(path)), CodeStatus::NoCryptography);
    const std::vector<std::string> errors = capture.at(host::LogLevel::Error);
    ASSERT_EQ(errors.size(), 1U);
    EXPECT_TRUE(
        errors[0].starts_with("No code counts as signed on this host: the host has no usable libcrypto: "
                              "libcrypto-that-is-not-there.so"))
        << errors[0];
}

TEST_F(AHostWithoutLibcrypto, StillReadsWhatNeedsNone) {
    const std::string path = signedFile("file", "some code");
    const ScopedLibCryptoName absent("libcrypto-that-is-not-there.so");
    EXPECT_EQ(StaticCode::open(path)->claims()->identifier, "com.example.tool");
    EXPECT_EQ(facts::statusOf(StaticCode::open(files_.at("nothing"))), CodeStatus::NotFound);
    const Result<RunningCode> own = RunningCode::open(*host::auditTokenForPid(::getpid()));
    EXPECT_EQ(own->path().value(), *host::sys::readLink("/proc/self/exe"));
    EXPECT_EQ(facts::statusOf(own->facts()), CodeStatus::Unsigned);
    const Result<Requirement> requirement = Requirement::parse("anchor trusted");
    EXPECT_EQ(facts::statusOf(StaticCode::open(path)->checkValidity(Checks::Default, &*requirement)),
              CodeStatus::Unsigned);
    ConstraintFacts asked;
    asked.team = "TEAM000001";
    EXPECT_TRUE(encodedRequirement(asked).ok());
}

TEST_F(AHostWithoutLibcrypto, IsOneWhoseLibraryLacksFunctions) {
    const auto library = LibCrypto::load("libm.so.6");
    ASSERT_FALSE(library.ok());
    EXPECT_EQ(library.error(), statusError(CodeStatus::NoCryptography, "libm.so.6 lacks ASN1_STRING_get0_data"));
}

// That it reads no configuration file either is shown in a process of its own: tests/tools/kswsign_test.py.
TEST_F(TheHostsLibcrypto, HeedsNoVariable) {
    const std::string path = signedFile("file", "some code");
    const std::string pipe = files_.at("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    // Whoever opened the pipe would wait for its writer for ever.
    const test::ScopedVariable modules("OPENSSL_MODULES", files_.path());
    const test::ScopedVariable trusted("SSL_CERT_FILE", pipe);
    const ScopedLibCryptoName again("libcrypto.so.3");
    EXPECT_TRUE(judged(path).ok());
}

TEST_F(TheHostsLibcrypto, LeavesTheProgramsErrorQueueAlone) {
    const Identity stranger = certificates_.root("stranger", {"plain"});
    const std::string path = signedByOpenssl(stranger);
    const LibCrypto& crypto = *LibCrypto::shared();
    EXPECT_EQ(statusOf(path), CodeStatus::NotTrusted);
    EXPECT_EQ(statusOf(fileWith("file", "code", bytesOf("x"), Data())), CodeStatus::DirectoryMalformed);
    EXPECT_EQ(crypto.ERR_peek_error(), 0U);
}

TEST_F(TheHostsLibcrypto, IsDeclaredToPackageBuilders) {
    const std::string program = *host::sys::readLink("/proc/self/exe");
    const std::string output = files_.at("notes");
    ASSERT_EQ(run({"readelf", "--wide", "--hex-dump=.note.dlopen", program}, output), 0);
    EXPECT_NE(textOf(contentOf(output)).find("FDO."), std::string::npos);
    EXPECT_NE(textOf(contentOf(program)).find("[{\"soname\":[\"libcrypto.so.3\"],\"feature\":"), std::string::npos);
}

}  // namespace
}  // namespace ksw::facts
