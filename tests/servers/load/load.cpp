#include "tests/servers/load/load.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include <kestrelwood/KSWItem.h>

#include "servers/kestrelwoodd/open_registry.h"
#include "servers/kestrelwoodd/record.h"
#include "servers/kestrelwoodd/registry.h"

namespace ksw::test {

namespace {

constexpr int kMinute = 60'000;

/// Reads that many bytes; false at the end of the line.
bool readAll(int fd, void* place, std::size_t size) {
    auto* bytes = static_cast<char*>(place);
    while (size > 0) {
        const ssize_t count = ::read(fd, bytes, size);
        if (count <= 0) {
            return false;
        }
        bytes += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

void writeAll(int fd, const void* place, std::size_t size) {
    const auto* bytes = static_cast<const char*>(place);
    while (size > 0) {
        const ssize_t count = ::send(fd, bytes, size, MSG_NOSIGNAL);
        if (count <= 0) {
            return;
        }
        bytes += count;
        size -= static_cast<std::size_t>(count);
    }
}

std::shared_ptr<KSWItem> developerOf(const std::string& name) {
    const auto developer = KSWItem::initWithType(KSWItemTypeDeveloper, "32." + name);
    developer->setName(name);
    developer->setDeveloperName(name);
    developer->setDisposition(KSWDispositionEnabled | KSWDispositionAllowed);
    return developer;
}

int runAs(Uid uid, const std::function<int(Line&)>& body, Line& line) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::geteuid() == 0 && ::setresuid(uid, uid, uid) != 0) {
        return 99;
    }
    return body(line);
}

}  // namespace

std::string labelOf(int number) {
    return "com.example.job-" + std::to_string(number);
}

std::string identifierOf(int number) {
    return "8." + labelOf(number);
}

Data constraintOf(int number) {
    const std::string text = "constraint of " + labelOf(number);
    return {text.begin(), text.end()};
}

URL jobURLOf(int number) {
    return URL::fileURL("/nowhere/" + labelOf(number) + ".plist");
}

Dictionary configurationOf(int number) {
    return {{std::string(KSWConfigLabel), labelOf(number)}, {std::string(KSWConfigExecutablePath), "/usr/bin/env"}};
}

std::vector<daemon::ItemRow> rowsOfJobs(Uid uid, int count) {
    std::vector<daemon::ItemRow> rows;
    std::shared_ptr<KSWItem> developer;
    for (int number = 0; number < count; ++number) {
        if (number % kJobsOfADeveloper == 0) {
            developer = developerOf("Maker of " + labelOf(number));
            rows.push_back(*daemon::rowOf(uid, *developer));
        }
        const auto item = KSWItem::initWithType(KSWItemTypeAgent | KSWItemTypeLegacyBit, identifierOf(number));
        item->setUrl(jobURLOf(number));
        item->setName(labelOf(number));
        item->setExecutablePath("/usr/bin/env");
        item->_setExecutableModificationDateFromURL(URL::fileURL("/usr/bin/env"));
        item->setLightweightRequirement(constraintOf(number));
        item->setDisposition(KSWDispositionEnabled | KSWDispositionAllowed);
        item->_setContainer(developer);
        rows.push_back(*daemon::rowOf(uid, *item));
    }
    return rows;
}

void recordJobs(Uid uid, int count) {
    const Result<servers::StateFolder> folder = daemon::takeStateFolder();
    ASSERT_TRUE(folder.ok()) << folder.error().description();
    Result<daemon::Store> store = daemon::Store::open(folder->at(daemon::kStoreFile));
    ASSERT_TRUE(store.ok()) << store.error().description();
    daemon::Change change;
    change.users.push_back({uid, "somebody"});
    change.put = rowsOfJobs(uid, count);
    const Status done = store->apply(change);
    ASSERT_TRUE(done.ok()) << done.error().description();
}

Uid anyUser() {
    return ::geteuid() == 0 ? 4501 : ::geteuid();
}

Uid anotherUser() {
    return ::geteuid() == 0 ? 4502 : ::geteuid();
}

std::size_t allowOpenFiles(std::size_t count) {
    rlimit limit{};
    EXPECT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    if (limit.rlim_cur < count) {
        limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, count);
        EXPECT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    }
    return static_cast<std::size_t>(limit.rlim_cur);
}

Nanoseconds percentile(std::vector<Nanoseconds> samples, double share) {
    const auto index = static_cast<std::ptrdiff_t>(static_cast<double>(samples.size() - 1) * share);
    std::nth_element(samples.begin(), samples.begin() + index, samples.end());
    return samples[static_cast<std::size_t>(index)];
}

std::vector<Nanoseconds> timesOf(int count, const std::function<void()>& call) {
    std::vector<Nanoseconds> times;
    times.reserve(static_cast<std::size_t>(count));
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kMinute / 3);
    for (int number = 0; number < count && std::chrono::steady_clock::now() < end; ++number) {
        const auto start = std::chrono::steady_clock::now();
        call();
        times.push_back(std::chrono::steady_clock::now() - start);
    }
    return times;
}

void Line::tell() const {
    writeAll(fd(), "!", 1);
}

bool Line::wait() const {
    pollfd waiting{fd(), POLLIN, 0};
    char told = 0;
    return ::poll(&waiting, 1, kMinute) == 1 && readAll(fd(), &told, 1);
}

void Line::send(const std::vector<Nanoseconds>& times) const {
    const std::size_t count = times.size();
    writeAll(fd(), &count, sizeof count);
    writeAll(fd(), times.data(), count * sizeof(Nanoseconds));
}

std::vector<Nanoseconds> Line::receive() const {
    std::size_t count = 0;
    if (!readAll(fd(), &count, sizeof count)) {
        return {};
    }
    std::vector<Nanoseconds> times(count);
    return readAll(fd(), times.data(), count * sizeof(Nanoseconds)) ? times : std::vector<Nanoseconds>{};
}

Child::Child(Uid uid, const std::function<int(Line&)>& body) : line_(UniqueFd()) {
    int ends[2]{};
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    line_ = Line(UniqueFd(ends[0]));
    Line theirs{UniqueFd(ends[1])};
    pid_ = ::fork();
    EXPECT_GE(pid_, 0);
    if (pid_ == 0) {
        line_.close();
        ::_exit(runAs(uid, body, theirs));
    }
}

Child::~Child() {
    if (pid_ > 0) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
    }
}

void Child::signal(int number) const {
    EXPECT_EQ(::kill(pid_, number), 0);
}

int Child::end() {
    line_.close();
    int status = 0;
    EXPECT_EQ(::waitpid(pid_, &status, 0), pid_);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace ksw::test
