#include "tests/servers/kestrelwoodd/daemon_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <memory>

#include "tests/support/sanitized.h"

extern char** environ;  // NOLINT(readability-redundant-declaration)

namespace ksw::daemon::test {

namespace {

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

/// The environment with the variables in front, where they are found first.
std::vector<std::string> environmentWith(const std::vector<std::string>& variables) {
    std::vector<std::string> all = variables;
    for (char** variable = environ; *variable != nullptr; ++variable) {
        all.emplace_back(*variable);
    }
    return all;
}

/// Who starts servers by the hundred pays for the rules no more than so many times.
constexpr int kStartsByRules = 16;

/// What starts the program: a server by the rules of its unit, but for sanitizers, which ask more of the kernel.
std::vector<std::string> beginningOf(const std::string& program) {
    static std::atomic<int> starts = 0;
    const bool isServer = std::filesystem::path(program).filename().native().starts_with("kestrelwood");
    if (ksw::test::kIsSanitized || !isServer || starts++ >= kStartsByRules) {
        return {program};
    }
    return {KSW_SOURCE_DIR "/tests/support/with_unit_rules.py", KSW_BINARY_DIR "/share/systemd", program};
}

}  // namespace

std::string daemonProgram() {
    return KSW_BINARY_DIR "/bin/kestrelwoodd";
}

Process::Process(const std::string& program, const std::vector<std::string>& arguments,
                 const std::vector<std::string>& variables) {
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    output_ = UniqueFd(ends[0]);
    const UniqueFd input(ends[1]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input.get(), 1);
    posix_spawn_file_actions_adddup2(&actions, input.get(), 2);
    std::vector<std::string> words = beginningOf(program);
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<std::string> environment = environmentWith(variables);
    EXPECT_EQ(posix_spawn(&pid_, words.front().c_str(), &actions, nullptr, pointersTo(words).data(),
                          pointersTo(environment).data()),
              0);
    posix_spawn_file_actions_destroy(&actions);
    descriptor_ = UniqueFd(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
    EXPECT_TRUE(descriptor_);
}

Process::~Process() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

void Process::signal(int number) const {
    EXPECT_EQ(kill(pid_, number), 0);
}

Ending Process::wait() {
    Ending ending;
    std::array<char, 4096> buffer{};
    for (ssize_t size = 0; (size = read(output_.get(), buffer.data(), buffer.size())) > 0;) {
        ending.output.append(buffer.data(), static_cast<std::size_t>(size));
    }
    int status = 0;
    EXPECT_EQ(waitpid(pid_, &status, 0), pid_);
    pid_ = 0;
    ending.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return ending;
}

DaemonHost::DaemonHost() : variable_("KESTRELWOOD_ROOT", root_.path()) {
    // Anybody may look for services in it.
    EXPECT_EQ(chmod(root_.path().c_str(), 0755), 0);
    notifications_ = UniqueFd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un place{};
    place.sun_family = AF_UNIX;
    const std::string path = root_.at("notify");
    EXPECT_LT(path.size(), sizeof place.sun_path);
    std::memcpy(place.sun_path, path.c_str(), path.size() + 1);
    EXPECT_EQ(bind(notifications_.get(), reinterpret_cast<const sockaddr*>(&place), sizeof place), 0);
}

std::unique_ptr<Process> DaemonHost::start(const std::vector<std::string>& variables,
                                           const std::vector<std::string>& arguments) const {
    std::vector<std::string> all = variables;
    all.push_back("NOTIFY_SOCKET=" + root_.at("notify"));
    return std::make_unique<Process>(arguments, all);
}

std::unique_ptr<Process> DaemonHost::startReady(const std::vector<std::string>& variables,
                                                const std::vector<std::string>& arguments) const {
    std::unique_ptr<Process> process = start(variables, arguments);
    if (!waitFor(*process, "READY=1")) {
        ADD_FAILURE() << process->wait().output;
        return nullptr;
    }
    return process;
}

bool DaemonHost::waitFor(const Process& process, std::string_view state) const {
    while (true) {
        std::array<pollfd, 2> waited{{{notifications_.get(), POLLIN, 0}, {process.descriptor(), POLLIN, 0}}};
        if (poll(waited.data(), waited.size(), -1) < 0) {
            return false;
        }
        std::array<char, 256> buffer{};
        const ssize_t size = recv(notifications_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (size > 0 && std::string_view(buffer.data(), static_cast<std::size_t>(size)) == state) {
            return true;
        }
        if (size <= 0 && waited[1].revents != 0) {
            return false;
        }
    }
}

}  // namespace ksw::daemon::test
