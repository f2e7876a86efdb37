// Whether what everybody relies on is an administrator's alone, and whole.
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string_view>
#include <utility>

#include "tools/kswctl/checks.h"
#include "tools/kswctl/host.h"

namespace tools::kswctl {
namespace {

namespace fs = std::filesystem;

constexpr const char* kTrust = "trust";
constexpr const char* kState = "state";

/// Who has to be able to read a file or folder.
enum class Readers { Owner, Everybody };

/// What is wrong with a file or folder that nobody but the host's owner may change; absent when nothing is.
std::optional<Check> faultOf(const char* about, const std::string& path, const struct stat& facts,
                             Readers readers) {
    const std::string word = shellWord(path);
    if (facts.st_uid != hostOwner()) {
        return Check{about, Finding::Wrong, path + " is uid " + std::to_string(facts.st_uid) + "'s",
                     "chown " + (hostOwner() == 0 ? "root:" : std::to_string(hostOwner())) + " " + word};
    }
    if ((facts.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        return Check{about, Finding::Wrong, "others may write to " + path, "chmod go-w " + word};
    }
    const mode_t needed = S_ISDIR(facts.st_mode) ? S_IROTH | S_IXOTH : S_IROTH;
    if (readers == Readers::Everybody && (facts.st_mode & needed) != needed) {
        return Check{about, Finding::Wrong, "not everybody may read " + path, "chmod a+rX " + word};
    }
    return std::nullopt;
}

/// A folder that nobody but the host's owner may change.
Check checkFolder(const char* about, const std::string& path, Readers readers, const std::string& mendWhenMissing) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) != 0) {
        if (errno == EACCES) {
            return {about, Finding::Wrong, path + ": " + std::strerror(EACCES),
                    "chmod a+rx " + shellWord(fs::path(path).parent_path().native())};
        }
        return {about, Finding::Missing, path + ": " + std::strerror(errno), mendWhenMissing};
    }
    if (!S_ISDIR(facts.st_mode)) {
        const std::string word = shellWord(path);
        return {about, Finding::Wrong, path + " is no folder", "mv " + word + " " + shellWord(path + ".old")};
    }
    return faultOf(about, path, facts, readers).value_or(Check{about, Finding::Well, path, {}});
}

std::string makeCommand(const std::string& path) {
    return "mkdir -p -m 755 " + shellWord(path);
}

/// The entries of a folder by name, hidden ones left out; none of one that cannot be read.
std::vector<fs::path> entriesOf(const std::string& folder) {
    std::vector<fs::path> entries;
    std::error_code problem;
    for (auto entry = fs::directory_iterator(folder, problem); !problem && entry != fs::directory_iterator();
         entry.increment(problem)) {
        if (!entry->path().filename().native().starts_with('.')) {
            entries.push_back(entry->path());
        }
    }
    std::ranges::sort(entries);
    return entries;
}

/// Whether a file looks like certificates, in text or in bytes.
bool holdsCertificate(const std::string& path) {
    constexpr char kSequence = 0x30;  // what a certificate in bytes begins with
    std::ifstream file(path, std::ifstream::binary);
    std::string line;
    bool isFirst = true;
    while (std::getline(file, line)) {
        if ((isFirst && line.starts_with(kSequence)) ||
            (line.starts_with("-----BEGIN ") && line.find("CERTIFICATE-----") != std::string::npos)) {
            return true;
        }
        isFirst = false;
    }
    return false;
}

/// What is wrong with a file of certificates; absent when nothing is.
std::optional<Check> faultOfCertificates(const std::string& path, const struct stat& facts) {
    if (std::optional<Check> fault = faultOf(kTrust, path, facts, Readers::Everybody)) {
        return fault;
    }
    if (!holdsCertificate(path)) {
        return Check{kTrust, Finding::Wrong, "no certificate in " + path, "rm " + shellWord(path)};
    }
    return std::nullopt;
}

/// A folder of trusted certificates, and a line for each file in it that is not as it should be.
std::vector<Check> checkTrustFolder(const std::string& path) {
    std::vector<Check> checks{checkFolder(kTrust, path, Readers::Everybody, makeCommand(path))};
    if (checks.front().finding != Finding::Well) {
        return checks;
    }
    std::size_t count = 0;
    for (const fs::path& entry : entriesOf(path)) {
        struct stat facts {};
        if (stat(entry.c_str(), &facts) != 0 || !S_ISREG(facts.st_mode)) {
            continue;
        }
        if (std::optional<Check> fault = faultOfCertificates(entry.native(), facts)) {
            checks.push_back(*std::move(fault));
        } else {
            ++count;
        }
    }
    checks.front().detail +=
        ": " + std::to_string(count) + (count == 1 ? " file of certificates" : " files of certificates");
    return checks;
}

/// The daemon's records, as far as the caller may look: the folder is the daemon's alone.
std::vector<Check> checkState() {
    const std::string path = hostPlace("/var/lib/kestrelwood");
    std::vector<Check> checks{checkFolder(kState, path, Readers::Owner, startCommand())};
    if (checks.front().finding != Finding::Well) {
        return checks;
    }
    const std::string records = path + "/kestrelwood.db";
    struct stat facts {};
    if (stat(records.c_str(), &facts) == 0) {
        if (!S_ISREG(facts.st_mode)) {
            checks.push_back({kState, Finding::Wrong, records + " is no file",
                              "mv " + shellWord(records) + " " + shellWord(path + "/set-aside-by-hand")});
        } else if (std::optional<Check> fault = faultOf(kState, records, facts, Readers::Owner)) {
            checks.push_back(*std::move(fault));
        }
    }
    for (const fs::path& entry : entriesOf(path)) {
        if (entry.filename().native().starts_with("set-aside-")) {
            checks.push_back({kState, Finding::Wrong,
                              entry.native() +
                                  ": records were lost, and what has none may not launch; once you have "
                                  "allowed what is right",
                              "rm -r " + shellWord(entry.native()) + " && " + restartCommand()});
        }
    }
    return checks;
}

}  // namespace

std::vector<Check> checkTrust() {
    const std::string run = hostPlace("/run/kestrelwood");
    const std::string share = hostPlace("/usr/share/kestrelwood");
    const std::string etc = hostPlace("/etc/kestrelwood");
    std::vector<Check> checks{checkFolder("run folder", run, Readers::Everybody, startCommand()),
                              checkFolder("shared files", share, Readers::Everybody, kReinstallCommand)};
    if (isThere(etc)) {
        checks.push_back(checkFolder("configuration", etc, Readers::Everybody, {}));
    }
    std::vector<std::string> folders{etc + "/trust", share + "/trust"};
    for (const std::string& maker : {etc + "/trust/maker", share + "/trust/maker"}) {
        if (isThere(maker)) {
            folders.push_back(maker);
        }
    }
    for (const std::string& folder : folders) {
        std::ranges::move(checkTrustFolder(folder), std::back_inserter(checks));
    }
    std::ranges::move(checkState(), std::back_inserter(checks));
    return checks;
}

}  // namespace tools::kswctl
