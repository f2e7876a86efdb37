// import_bench.cpp: what it takes to register 5,000 job files with the daemon in one run, each of a program that is
// signed: files a second, memory, and how much of it is the store's and the signatures', each measured alone in the
// same run; and to register them again, which must change nothing. Ends with 1 when a target is missed and it was
// called with "--strict".
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <tuple>

#include <sys/resource.h>
#include <unistd.h>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWFunctions.h>
#include <kestrelwood/KSWList.h>
#include <kestrelwood/KSWManager.h>

#include "bench/support/items.h"
#include "bench/support/question.h"
#include "bench/support/rounds.h"
#include "platform/facts/code.h"
#include "platform/facts/sign.h"

namespace {

using namespace ksw;

constexpr int kJobs = 5'000;
constexpr int kDevelopers = 250;
const std::string kNewKey = "-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2";
constexpr std::size_t kProgramSize = 16'384;
/// What a commit takes is the same each time; so many tell it.
constexpr int kCommits = 500;
constexpr double kAgainTarget = 0.1;

[[noreturn]] void fail(const std::string& text) {
    std::fprintf(stderr, "%s\n", text.c_str());
    std::exit(2);
}

template <class Body>
double secondsOf(Body body) {
    const auto start = std::chrono::steady_clock::now();
    body();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

Data contentOf(const std::string& path) {
    std::ifstream file(path, std::ifstream::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string developerOf(int number) {
    return "Bench" + std::to_string(number % kDevelopers);
}

/// Job files and their programs, of developers whom the host trusts.
class Jobs {
public:
    explicit Jobs(const std::string& root) : root_(root) {
        for (const char* folder : {"/etc/kestrelwood/trust", "/jobs", "/programs"}) {
            std::filesystem::create_directories(root_ + folder);
        }
        run("openssl req -x509 " + kNewKey + " -subj /CN=root -addext keyUsage=critical,keyCertSign -keyout " +
            root_ + "/root.key -out " + root_ + "/etc/kestrelwood/trust/root.pem");
        for (int number = 0; number < kDevelopers; ++number) {
            signOne(number);
        }
        for (int number = 0; number < kJobs; ++number) {
            make(number);
        }
    }

    std::string program(int number) const { return root_ + "/programs/" + std::to_string(number); }
    std::string job(int number) const { return root_ + "/jobs/" + std::to_string(number) + ".plist"; }

private:
    std::string signedBy(const std::string& developer) const { return root_ + "/" + developer; }

    static void run(const std::string& command) {
        if (std::system((command + " >/dev/null 2>&1").c_str()) != 0) {
            fail(command);
        }
    }

    void signOne(int number) const {
        const std::string developer = developerOf(number);
        const std::string root = root_ + "/etc/kestrelwood/trust/root.pem";
        const std::string certificate = root_ + "/" + developer + ".pem";
        run("openssl req -x509 " + kNewKey +
            " -addext extendedKeyUsage=codeSigning -subj /CN=bench/O=" + developer + " -CA " + root + " -CAkey " +
            root_ + "/root.key -keyout " + root_ + "/key -out " + certificate);
        SigningRequest request;
        request.identifier = "com.example.bench";
        request.key = contentOf(root_ + "/key");
        request.chain = contentOf(certificate);
        const Data issuer = contentOf(root);
        request.chain.insert(request.chain.end(), issuer.begin(), issuer.end());
        std::string code =
            "\x7F"
            "ELF";
        code.resize(kProgramSize, 'x');
        std::ofstream(signedBy(developer), std::ofstream::binary) << code;
        if (const Status status = facts::sign(signedBy(developer), request); !status) {
            fail(status.error().description());
        }
    }

    /// Every program is a file of its own, which nobody has looked at.
    void make(int number) const {
        std::filesystem::copy_file(signedBy(developerOf(number)), program(number));
        std::ofstream(job(number)) << "<plist version=\"1.0\"><dict><key>Label</key><string>com.example.bench"
                                   << number << "</string><key>ProgramArguments</key><array><string>"
                                   << program(number)
                                   << "</string><string>--quiet</string></array></dict></plist>\n";
    }

    std::string root_;
};

void importJobs(KSWManager& manager, const Jobs& jobs) {
    for (int number = 0; number < kJobs; ++number) {
        const URL url = URL::fileURL(jobs.job(number));
        const auto job = readPropertyListFile(url);
        const auto configuration = job ? configurationFromJob(*job) : std::nullopt;
        std::shared_ptr<KSWItem> item;
        const auto type = static_cast<std::int64_t>(KSWItemTypeAgent | KSWItemTypeLegacyBit);
        const std::int64_t code = manager.registerItem(&item, std::nullopt, type, url, configuration, ::getuid());
        const bool isRecorded = code == KSWErrorNone || code == KSWErrorRecordExists;
        if (!isRecorded || item == nullptr || item->developerName() != developerOf(number)) {
            fail("not registered: " + jobs.job(number));
        }
    }
}

/// What is recorded, by what every change of it changes.
std::map<std::string, std::tuple<UUID, std::int64_t, KSWDisposition>> recorded(KSWManager& manager) {
    std::map<std::string, std::tuple<UUID, std::int64_t, KSWDisposition>> records;
    const auto list = manager.getItemsMatching(static_cast<std::int64_t>(KSWItemTypeAgent), ::getuid());
    if (list == nullptr) {
        fail("no list");
    }
    for (const auto& item : list->items()) {
        records[item->identifier().value_or("")] = {*item->uuid(), item->generation(), item->disposition()};
    }
    return records;
}

/// The signatures alone, none of them known before.
double signaturesAlone(const Jobs& jobs) {
    facts::Verifier verifier;
    return secondsOf([&] {
        for (int number = 0; number < kJobs; ++number) {
            const auto code = facts::StaticCode::open(jobs.program(number), verifier);
            if (!code || !code->facts()) {
                fail("not signed: " + jobs.program(number));
            }
        }
    });
}

/// As many commits of a row each as there are jobs, alone.
double storeAlone(const std::string& path) {
    daemon::ItemRow row;
    daemon::Store store = bench::storeWithAgent(path, row);
    const double some = secondsOf([&] {
        for (int number = 0; number < kCommits; ++number) {
            ++row.generation;
            daemon::Change change;
            change.put.push_back(row);
            if (!store.apply(change)) {
                fail("the store takes no change");
            }
        }
    });
    return some * kJobs / kCommits;
}

double mebibytes(int who) {
    rusage usage{};
    ::getrusage(who, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024;
}

}  // namespace

int main(int count, char** words) {
    const bench::BenchRoot root;
    const Jobs jobs(root.path());
    // First, so that the files have settled when they are imported, as on a host: who looks at a file a moment
    // after it was written cannot tell it from one that is written again.
    const double store = storeAlone(root.path() + "/alone.db");
    const double signatures = signaturesAlone(jobs);
    double first = 0;
    double again = 0;
    {
        const auto daemon = bench::managementDaemon();
        const auto manager = KSWManager::initWithMode(0);
        first = secondsOf([&] { importJobs(*manager, jobs); });
        const auto before = recorded(*manager);
        again = secondsOf([&] { importJobs(*manager, jobs); });
        if (before.size() != kJobs || before != recorded(*manager)) {
            fail("something was lost, or changed by the second import");
        }
    }
    const auto share = [first](double part) { return 100 * part / first; };
    std::printf("%d job files imported: %.2f s, %.0f files/s; memory: %.0f MiB the daemon, %.0f MiB who imports\n",
                kJobs, first, kJobs / first, mebibytes(RUSAGE_CHILDREN), mebibytes(RUSAGE_SELF));
    std::printf("of that, as much as they take alone: the store %.0f %%, signatures %.0f %%, all else %.0f %%\n",
                share(store), share(signatures), 100 - share(store) - share(signatures));
    std::printf("imported again: %.2f s, ratio %.3f (target: at most %.1f), and nothing changed\n", again,
                again / first, kAgainTarget);
    return bench::exitStatus(again / first <= kAgainTarget, count, words);
}
