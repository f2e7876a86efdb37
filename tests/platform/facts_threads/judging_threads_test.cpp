// Threads that ask about code while others change it, or what is trusted.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <set>
#include <thread>

#include "platform/host/log_capture.h"
#include "platform/host/sys.h"
#include "tests/support/signing_support.h"

namespace ksw::facts {
namespace {

using ASignedFile = SigningTest;
using AVerifier = SigningTest;
using AHostWithoutLibcrypto = SigningTest;

constexpr int kChanges = 10'000 / kSlowness;
constexpr int kThreads = 4;

void inThreads(int count, const std::function<void(int)>& work) {
    std::vector<std::thread> threads;
    for (int number = 0; number < count; ++number) {
        threads.emplace_back([&work, number] { work(number); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// Makes the name stand for another file, in one step.
void rename(const std::string& other, const std::string& next, const std::string& path) {
    std::filesystem::create_hard_link(other, next);
    std::filesystem::rename(next, path);
    // A file that already has the name stays, and so does its other name.
    std::error_code ignored;
    std::filesystem::remove(next, ignored);
}

TEST_F(ASignedFile, SwappedWhileItIsJudgedGivesTheFactsOfTheBytesThatWereHashed) {
    const std::string first = signedFile("first", std::string(100'000, '1'), "com.example.first");
    const std::string second = signedFile("second", std::string(100'000, '2'), "com.example.second");
    const std::string path = files_.at("file");
    std::filesystem::create_hard_link(first, path);
    std::atomic<bool> isDone{false};
    std::thread swapper([&] {
        for (int swap = 0; swap < kChanges; ++swap) {
            rename(swap % 2 == 0 ? second : first, files_.at("next"), path);
        }
        isDone = true;
    });
    Verifier verifier;
    for (bool isLast = false; !isLast;) {
        isLast = isDone;
        const Result<CodeFile> file = CodeFile::open(path);
        EXPECT_TRUE(file.ok());
        const auto facts = verifier.judge(*file);
        EXPECT_TRUE(facts.ok()) << facts.error().description();
        char byte = 0;
        EXPECT_EQ(::pread(file->fd(), &byte, 1, 50'000), 1);
        EXPECT_EQ((*facts)->identifier, byte == '1' ? "com.example.first" : "com.example.second");
    }
    swapper.join();
}

TEST_F(ASignedFile, SwappedForWhatIsNoFileIsAnsweredAtOnce) {
    const std::string good = signedFile("good", "some code");
    const std::string path = files_.at("file");
    const std::string pipe = files_.at("pipe");
    const std::string link = files_.at("link");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    ASSERT_EQ(::symlink("/dev/zero", link.c_str()), 0);
    std::filesystem::create_hard_link(good, path);
    std::atomic<bool> isDone{false};
    std::thread swapper([&] {
        for (int swap = 0; swap < kChanges; ++swap) {
            const std::string* const others[] = {&pipe, &good, &link, &good};
            rename(*others[swap % 4], files_.at("next"), path);
        }
        isDone = true;
    });
    Verifier verifier;
    std::set<CodeStatus> seen;
    for (bool isLast = false; !isLast;) {
        isLast = isDone;
        const auto start = std::chrono::steady_clock::now();
        const Result<StaticCode> code = StaticCode::open(path, verifier);
        seen.insert(code ? facts::statusOf(code->facts()) : facts::statusOf(code));
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100) * kSlowness);
    }
    swapper.join();
    seen.erase(CodeStatus::NotCode);
    EXPECT_EQ(seen, std::set<CodeStatus>{CodeStatus{}});
}

/// Puts a content in a file's place without another file.
void overwrite(int file, Bytes content) {
    EXPECT_EQ(::pwrite(file, content.data(), content.size(), 0), static_cast<ssize_t>(content.size()));
    EXPECT_EQ(::ftruncate(file, static_cast<off_t>(content.size())), 0);
}

TEST_F(ASignedFile, OverwrittenWhileItIsJudgedGivesTheFactsOfTheBytesThatWereHashedOrNone) {
    const std::string first = signedFile("first", std::string(100'000, '1'), "com.example.first");
    const Data contents[] = {contentOf(first),
                             contentOf(signedFile("second", std::string(100'000, '2'), "com.example.second"))};
    const UniqueFd out = *host::sys::open(first, O_WRONLY);
    std::atomic<int> state{0};  // odd while it is written; every other even one is the first's
    std::atomic<int> judged{0};
    std::thread writer([&] {
        for (int turn = 1; turn <= kChanges; ++turn) {
            ++state;
            overwrite(out.get(), contents[turn % 2]);
            ++state;
            // Now and then one stays long enough to be judged as a whole.
            const int enough = judged + 2;
            for (int seen = judged; turn % 16 == 0 && seen < enough; seen = judged) {
                judged.wait(seen);
            }
        }
        state = -1;
    });
    Verifier verifier;
    int whole = 0;
    for (int before = 0; before >= 0; before = state) {
        const Result<CodeFile> file = CodeFile::open(first);
        const auto facts = verifier.judge(*file);
        const bool isWhole = before % 2 == 0 && state == before;
        const std::string identifier = facts ? (*facts)->identifier : std::string();
        if (isWhole) {
            EXPECT_EQ(identifier, before % 4 == 0 ? "com.example.first" : "com.example.second");
        } else if (facts) {
            EXPECT_TRUE(identifier == "com.example.first" || identifier == "com.example.second") << identifier;
        }
        whole += isWhole ? 1 : 0;
        ++judged;
        judged.notify_all();
    }
    writer.join();
    EXPECT_GT(whole, 0);
}

TEST_F(AVerifier, IsAskedByManyThreadsWhileTheTrustedCertificatesComeAndGo) {
    std::vector<std::string> paths;
    for (int number = 0; number < kThreads; ++number) {
        const std::string name = "file" + std::to_string(number);
        paths.push_back(signedFile(name, "some code", "com.example." + name));
    }
    const std::string root = host_.folder().at("etc/kestrelwood/trust/root.pem");
    const std::string aside = files_.at("root.pem");
    const ForwardClock clock;
    Verifier verifier(clock, 2);  // so that they also push each other out
    std::atomic<bool> isDone{false};
    std::thread changer([&] {
        while (!isDone) {
            EXPECT_EQ(::rename(root.c_str(), aside.c_str()), 0);
            EXPECT_EQ(::rename(aside.c_str(), root.c_str()), 0);
        }
    });
    inThreads(kThreads, [&](int number) {
        for (int turn = 0; turn < 500 / kSlowness; ++turn) {
            const std::size_t index = static_cast<std::size_t>(number + turn) % paths.size();
            const auto facts = StaticCode::open(paths[index], verifier)->facts();
            if (facts) {
                EXPECT_EQ((*facts)->identifier, "com.example.file" + std::to_string(index));
            } else {
                EXPECT_EQ(facts::statusOf(facts), CodeStatus::NotTrusted);
            }
        }
    });
    isDone = true;
    changer.join();
    ASSERT_EQ(::rename(root.c_str(), aside.c_str()), 0);
    EXPECT_EQ(facts::statusOf(StaticCode::open(paths[0], verifier)->facts()), CodeStatus::NotTrusted);
    ASSERT_EQ(::rename(aside.c_str(), root.c_str()), 0);
    EXPECT_TRUE(StaticCode::open(paths[0], verifier)->facts().ok());
}

TEST_F(ASignedFile, IsJudgedOnceForAllThreadsThatAskTogether) {
    const std::string path = signedFile("file", std::string(100'000, '1'));
    Verifier verifier;
    const StaticCode code = *StaticCode::open(path, verifier);
    std::vector<const CodeFacts*> facts(kThreads);
    inThreads(kThreads, [&](int number) { facts[static_cast<std::size_t>(number)] = code.facts()->get(); });
    for (const CodeFacts* each : facts) {
        EXPECT_EQ(each, facts[0]);
    }
}

TEST_F(AVerifier, OpensTheHostsLibcryptoOnceForAllThreads) {
    const std::string path = signedFile("file", "some code");
    const ScopedLibCryptoName again("libcrypto.so.3");
    std::vector<const LibCrypto*> libraries(kThreads);
    inThreads(kThreads, [&](int number) {
        EXPECT_TRUE(judged(path).ok());
        libraries[static_cast<std::size_t>(number)] = LibCrypto::shared();
    });
    for (const LibCrypto* each : libraries) {
        EXPECT_EQ(each, libraries[0]);
    }
}

TEST_F(AHostWithoutLibcrypto, SaysSoOnceForAllThreads) {
    const std::string path = signedFile("file", "some code");
    const ScopedLibCryptoName absent("libcrypto-that-is-not-there.so");
    const host::LogCapture capture;
    inThreads(kThreads, [&](int) { EXPECT_EQ(statusOf(path), CodeStatus::Unsigned); });
    EXPECT_EQ(capture.at(host::LogLevel::Error).size(), 1U);
}

}  // namespace
}  // namespace ksw::facts
