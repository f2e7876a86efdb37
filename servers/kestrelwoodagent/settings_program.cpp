#include "servers/kestrelwoodagent/settings_program.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <optional>

#include "platform/base/limits.h"
#include "platform/host/file_facts.h"
#include "platform/host/host_root.h"
#include "platform/host/sys_call.h"
#include "platform/host/user_folders.h"
#include "platform/plist/property_list.h"
#include "servers/kestrelwoodagent/errors.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): not every libc declares it

namespace ksw::agentserver {

namespace {

constexpr std::string_view kFile = "/kestrelwood/agent.plist";
constexpr std::string_view kKey = "SettingsProgram";
constexpr std::size_t kWordsMax = 64;

Error notConfigured() {
    return Error(kStatusErrorDomain, kNotConfigured, "no settings program is configured");
}

/// How the program starts: signals as a program expects them, which this one has changed for itself.
class SpawnAttributes {
public:
    SpawnAttributes() {
        posix_spawnattr_init(&attributes_);
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes_, &none);
        sigset_t all;
        sigfillset(&all);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    ~SpawnAttributes() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;

    const posix_spawnattr_t* attributes() const { return &attributes_; }
    const posix_spawn_file_actions_t* actions() const { return &actions_; }

private:
    posix_spawnattr_t attributes_{};
    posix_spawn_file_actions_t actions_{};
};

bool isWord(const Value& value) {
    const auto* text = value.as<std::string>();
    return text != nullptr && text->find('\0') == std::string::npos;
}

Result<std::vector<std::string>> commandIn(const std::string& file, const Value& configuration) {
    const auto* dictionary = configuration.as<Dictionary>();
    if (dictionary == nullptr) {
        return Error(FormatError::WrongType, file + ": dictionary expected");
    }
    const auto found = dictionary->find(kKey);
    if (found == dictionary->end()) {
        return notConfigured();
    }
    const auto* words = found->second.as<Array>();
    if (words == nullptr || words->empty() || words->size() > kWordsMax) {
        return Error(FormatError::WrongType,
                     file + ": " + std::string(kKey) + ": array of 1 to 64 strings expected");
    }
    std::vector<std::string> command;
    for (const Value& word : *words) {
        if (!isWord(word)) {
            return Error(FormatError::WrongType, file + ": " + std::string(kKey) + ": string expected");
        }
        command.push_back(*word.as<std::string>());
    }
    if (command.front().empty()) {
        return Error(FormatError::WrongType, file + ": " + std::string(kKey) + ": the program's name is empty");
    }
    return command;
}

}  // namespace

std::vector<std::string> configurationFiles() {
    std::vector<std::string> files;
    if (const std::optional<std::string> folder = host::userConfigFolder()) {
        files.push_back(*folder + std::string(kFile));
    }
    for (const std::string_view folder : {"/etc", "/usr/share"}) {
        files.push_back(host::hostPath(folder) + std::string(kFile));
    }
    return files;
}

Result<std::vector<std::string>> settingsCommand() {
    for (const std::string& file : configurationFiles()) {
        const Result<Data> bytes = host::readFile(file, limits::kPropertyListFileMax);
        if (!bytes && (host::sys::isErrno(bytes.error(), ENOENT) || host::sys::isErrno(bytes.error(), ENOTDIR))) {
            continue;
        }
        if (!bytes) {
            return bytes.error();
        }
        const Result<Value> configuration = plist::read(*bytes);
        if (!configuration) {
            return Error(kFormatErrorDomain, configuration.error().code(),
                         file + ": " + std::string(configuration.error().localizedDescription()));
        }
        return commandIn(file, *configuration);
    }
    return notConfigured();
}

Status openSettings() {
    Result<std::vector<std::string>> command = settingsCommand();
    if (!command) {
        return command.error();
    }
    std::vector<char*> words;
    for (std::string& word : *command) {
        words.push_back(word.data());
    }
    words.push_back(nullptr);
    const SpawnAttributes start;
    pid_t pid = 0;
    const int error = posix_spawnp(&pid, words.front(), start.actions(), start.attributes(), words.data(), environ);
    return error == 0 ? Status() : Status(host::sys::callError(error, "posix_spawnp", command->front()));
}

}  // namespace ksw::agentserver
