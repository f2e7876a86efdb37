// Files that are no code: whatever stands at a path, there is an answer, and at once.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "platform/base/limits.h"
#include "platform/facts/code_file.h"
#include "platform/facts/trust.h"
#include "platform/host/log_capture.h"
#include "platform/host/sys.h"
#include "tests/support/flipping.h"
#include "tests/support/openings.h"
#include "tests/support/signing_support.h"
#include "tests/support/sys_faults.h"

namespace ksw::facts {
namespace {

using AFileThatIsNoCode = SigningTest;
using ABundle = SigningTest;
using TheTrustFolder = SigningTest;

/// A terminal of the test's own; the path of its slave.
class Terminal {
public:
    Terminal() : master_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        EXPECT_EQ(::grantpt(master_.get()), 0);
        EXPECT_EQ(::unlockpt(master_.get()), 0);
        char name[64]{};
        EXPECT_EQ(::ptsname_r(master_.get(), name, sizeof name), 0);
        slave_ = name;
    }
    const std::string& path() const { return slave_; }

private:
    UniqueFd master_;
    std::string slave_;
};

TEST_F(AFileThatIsNoCode, CanBeADevice) {
    const Terminal terminal;
    for (const std::string& path : {std::string("/dev/null"), std::string("/dev/zero"), std::string("/dev/full"),
                                    std::string("/dev/random"), std::string("/dev/ptmx"), terminal.path()}) {
        EXPECT_EQ(promptStatus(path), CodeStatus::NotCode) << path;
        EXPECT_EQ(facts::statusOf(sign(path, request(nullptr))), CodeStatus::NotCode) << path;
        EXPECT_EQ(facts::statusOf(strip(path)), CodeStatus::NotCode) << path;
    }
}

TEST_F(AFileThatIsNoCode, CanBeAPipeOfTheProcessItself) {
    int ends[2]{};
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    const UniqueFd in(ends[0]);
    const UniqueFd out(ends[1]);
    EXPECT_EQ(promptStatus("/proc/self/fd/" + std::to_string(in.get())), CodeStatus::NotCode);
    EXPECT_EQ(promptStatus("/dev/fd/" + std::to_string(out.get())), CodeStatus::NotCode);
    ASSERT_EQ(::mkfifo(files_.at("pipe").c_str(), 0600), 0);
    EXPECT_EQ(facts::statusOf(sign(files_.at("pipe"), request(nullptr))), CodeStatus::NotCode);
    EXPECT_EQ(facts::statusOf(strip(files_.at("pipe"))), CodeStatus::NotCode);
}

TEST_F(AFileThatIsNoCode, IsNotOpenedWhenItTakesTheNameOfCodeMeanwhile) {
    const Terminal terminal;
    const std::string code = files_.writeFile("code", "some code");
    const std::string pipe = files_.at("pipe");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    ASSERT_EQ(::symlink(terminal.path().c_str(), files_.at("link").c_str()), 0);
    const test::Openings openings[] = {test::Openings(pipe), test::Openings(terminal.path())};
    const UniqueFd folder = *host::sys::open(files_.path(), O_RDONLY | O_DIRECTORY);
    for (const char* other : {"pipe", "link"}) {
        std::set<CodeStatus> seen;
        test::whileFlipping(code, files_.at(other), [&] {
            seen.insert(facts::statusOf(CodeFile::open(code)));
            seen.insert(facts::statusOf(CodeFile::openAt(folder.get(), "code")));
        });
        seen.erase(CodeStatus::NotCode);
        EXPECT_EQ(seen, std::set<CodeStatus>{CodeStatus{}}) << other;
    }
    EXPECT_FALSE(openings[0].heard());
    EXPECT_FALSE(openings[1].heard());
}

TEST_F(AFileThatIsNoCode, CanBeTheKernels) {
    for (const char* path :
         {"/proc/self/status", "/proc/self/maps", "/proc/self/mem", "/proc/self/pagemap", "/proc/self/environ",
          "/proc/self/cwd", "/proc/self", "/proc/kmsg", "/proc/kcore", "/sys/kernel/profiling",
          "/sys/devices/system/cpu/online", "/sys/kernel/notes", "/proc/1/exe", "/proc/2/exe"}) {
        // Some say that they have a size, and have nothing there; which of the errors it is depends on the host.
        EXPECT_NE(promptStatus(path), CodeStatus{}) << path;
    }
}

TEST_F(AFileThatIsNoCode, CanBeLinksThatLeadToNoEnd) {
    ASSERT_EQ(::symlink("one", files_.at("other").c_str()), 0);
    ASSERT_EQ(::symlink("other", files_.at("one").c_str()), 0);
    EXPECT_EQ(promptStatus(files_.at("one")), CodeStatus::NotReadable);
    EXPECT_EQ(promptStatus(files_.at("one/file")), CodeStatus::NotReadable);
    EXPECT_EQ(promptStatus(files_.at("one/")), CodeStatus::NotReadable);
    EXPECT_EQ(facts::statusOf(sign(files_.at("one"), request(nullptr))), CodeStatus::NotReadable);
    // As many links, one after the other, as nobody follows.
    files_.writeFile("link0", "some code");
    for (int number = 1; number <= 64; ++number) {
        ASSERT_EQ(::symlink(("link" + std::to_string(number - 1)).c_str(),
                            files_.at("link" + std::to_string(number)).c_str()),
                  0);
    }
    EXPECT_EQ(promptStatus(files_.at("link8")), CodeStatus::Unsigned);
    EXPECT_EQ(promptStatus(files_.at("link64")), CodeStatus::NotReadable);
}

constexpr const char* kInformation =
    "<plist><dict><key>QCBundleExecutable</key><string>main</string></dict></plist>";

TEST_F(ABundle, IsABadOneWhateverStandsInTheExecutablesPlace) {
    files_.writeFile("Tool.app/Contents/Info.plist", kInformation);
    const std::string bundle = files_.at("Tool.app");
    const std::string main = files_.makeFolder("Tool.app/Contents/Linux/main");
    EXPECT_EQ(promptStatus(bundle), CodeStatus::BadBundle);
    EXPECT_EQ(facts::statusOf(sign(bundle, request(nullptr))), CodeStatus::BadBundle);
    EXPECT_EQ(promptStatus(main), CodeStatus::NotCode);
    std::filesystem::remove(main);
    for (const char* target : {"/dev/zero", "main", "/proc/self/exe"}) {
        std::filesystem::create_symlink(target, main);
        EXPECT_EQ(promptStatus(bundle), CodeStatus::BadBundle) << target;
        std::filesystem::remove(main);
    }
    files_.writeFile("Tool.app/Contents/Linux/main", "");
    EXPECT_EQ(promptStatus(bundle), CodeStatus::Unsigned);
    std::filesystem::remove_all(bundle + "/Contents/Linux");
    files_.writeFile("Tool.app/Contents/Linux", "");
    EXPECT_EQ(promptStatus(bundle), CodeStatus::BadBundle);
}

TEST_F(ABundle, IsABadOneWhateverStandsInItsListsPlace) {
    files_.writeFile("Tool.app/Contents/Linux/main", "some code");
    const std::string bundle = files_.at("Tool.app");
    const std::string list = bundle + "/Contents/Info.plist";
    ASSERT_EQ(::mkfifo(list.c_str(), 0600), 0);
    EXPECT_EQ(promptStatus(bundle), CodeStatus::BadBundle);
    std::filesystem::remove(list);
    std::filesystem::create_directory(list);
    EXPECT_EQ(promptStatus(bundle), CodeStatus::BadBundle);
    std::filesystem::remove(list);
    std::filesystem::create_symlink("/dev/zero", list);
    EXPECT_EQ(promptStatus(bundle), CodeStatus::BadBundle);
    std::filesystem::remove(list);
    files_.writeFile("Tool.app/Contents/Info.plist", kInformation);
    EXPECT_EQ(promptStatus(bundle), CodeStatus::Unsigned);
    ASSERT_EQ(::truncate(list.c_str(), off_t{1} << 40U), 0);
    EXPECT_EQ(promptStatus(bundle), CodeStatus::BadBundle);
    std::filesystem::remove_all(bundle + "/Contents");
    ASSERT_EQ(::symlink("Contents", (bundle + "/Contents").c_str()), 0);
    EXPECT_EQ(promptStatus(bundle), CodeStatus::BadBundle);
}

TEST_F(TheTrustFolder, MayHoldWhatIsNoCertificate) {
    const std::string path = signedFile("file", "some code");
    const std::string folder = host_.folder().at("etc/kestrelwood/trust");
    ASSERT_EQ(::mkfifo((folder + "/pipe").c_str(), 0600), 0);
    std::filesystem::create_directory(folder + "/folder");
    std::filesystem::create_symlink("/dev/zero", folder + "/device");
    std::filesystem::create_symlink("loop", folder + "/loop");
    std::filesystem::create_symlink("nothing", folder + "/nothing");
    host_.folder().writeFile("etc/kestrelwood/trust/empty", "");
    host_.folder().writeFile("etc/kestrelwood/trust/text", "-----BEGIN CERTIFICATE-----\nnone\n");
    ASSERT_EQ(::truncate(host_.folder().writeFile("etc/kestrelwood/trust/huge", "").c_str(), off_t{1} << 40U), 0);
    EXPECT_EQ(promptStatus(path), CodeStatus{});
}

TEST_F(TheTrustFolder, WithMoreFilesThanAreLookedAtIsLoggedOnce) {
    const std::string folder = host_.folder().makeFolder("etc/kestrelwood/trust");
    for (std::size_t number = 0; number < limits::kTrustedCertificatesMax; ++number) {
        std::filesystem::create_directory(folder + "/" + std::to_string(number));
    }
    const LibCrypto& crypto = *LibCrypto::shared();
    Trust trust;
    const host::LogCapture log;
    trust.current(crypto, 0);
    EXPECT_TRUE(log.at(host::LogLevel::Error).empty());
    std::filesystem::create_directory(folder + "/more");
    for (int time = 0; time < 2; ++time) {
        trust.current(crypto, 0);
        EXPECT_EQ(log.at(host::LogLevel::Error),
                  std::vector<std::string>{"Only the first 256 of 257 files in \"" + folder + "\" are looked at"});
    }
}

TEST_F(TheTrustFolder, IsNoneWhenItIsNoFolder) {
    const std::string path = signedFile("file", "some code");
    const std::string folder = host_.folder().at("etc/kestrelwood/trust");
    std::filesystem::remove_all(folder);
    EXPECT_EQ(promptStatus(path), CodeStatus::NotTrusted);
    ASSERT_EQ(::mkfifo(folder.c_str(), 0600), 0);
    EXPECT_EQ(promptStatus(path), CodeStatus::NotTrusted);
    std::filesystem::remove(folder);
    ASSERT_EQ(::symlink("trust", folder.c_str()), 0);
    EXPECT_EQ(promptStatus(path), CodeStatus::NotTrusted);
}

TEST_F(TheTrustFolder, HoldsCertificatesInDerAndManyInOneFile) {
    const Identity first = certificates_.root("first");
    const Identity second = certificates_.root("second");
    const std::string folder = host_.folder().makeFolder("etc/kestrelwood/trust");
    const std::string path = signedByOpenssl(certificates_.issue(second, "leaf"));
    host_.folder().writeFile("etc/kestrelwood/trust/.hidden", textOf(contentOf(second.certificate)));
    host_.folder().writeFile("etc/kestrelwood/trust/other/root", textOf(contentOf(second.certificate)));
    EXPECT_EQ(statusOf(path), CodeStatus::NotTrusted);
    host_.folder().writeFile("etc/kestrelwood/trust/both",
                             textOf(contentOf(first.certificate)) + textOf(contentOf(second.certificate)));
    EXPECT_EQ(statusOf(path), CodeStatus{});
    std::filesystem::remove(folder + "/both");
    ASSERT_EQ(run({"openssl", "x509", "-in", second.certificate, "-outform", "DER", "-out", folder + "/der"}), 0);
    EXPECT_EQ(statusOf(path), CodeStatus{});
}

TEST_F(TheTrustFolder, IsReadAgainWhenItCouldNotBeReadForAReasonThatPasses) {
    using host::sys::Call;
    const std::string path = signedFile("file", "some code");
    const ForwardClock clock;
    const Result<CodeFile> file = CodeFile::open(path);
    int missed = 0;
    for (const Call call : {Call::Open, Call::Statx, Call::Read}) {
        for (unsigned number = 1; number <= 12; ++number) {
            Verifier verifier(clock);
            {
                test::SysFaults faults;
                faults.failNth(call, number, EMFILE);
                missed += verifier.judge(*file).ok() ? 0 : 1;
            }
            EXPECT_TRUE(verifier.judge(*file).ok()) << static_cast<int>(call) << ", " << number;
        }
    }
    EXPECT_GT(missed, 3);
}

}  // namespace
}  // namespace ksw::facts
