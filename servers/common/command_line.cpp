#include "servers/common/command_line.h"

#include <getopt.h>

#include <cstdio>
#include <string>
#include <vector>

#include <kestrelwood/ksw_version.h>

namespace ksw::servers {

namespace {

constexpr int kUsage = 2;
constexpr int kFlag = 1;  // no letter

void print(std::FILE* stream, std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stream);
    std::fflush(stream);
}

int wrongUsage(std::string_view name) {
    print(stderr, "Try '" + std::string(name) + " --help'.\n");
    return kUsage;
}

}  // namespace

std::optional<int> readCommandLine(int count, char** arguments, std::string_view name, std::string_view help,
                                   std::span<const Flag> flags) {
    std::vector<option> options;
    for (const Flag& flag : flags) {
        options.push_back({flag.name, no_argument, nullptr, kFlag});
    }
    options.insert(
        options.end(),
        {{"help", no_argument, nullptr, 'h'}, {"version", no_argument, nullptr, 'V'}, {nullptr, 0, nullptr, 0}});
    while (true) {
        int index = 0;
        switch (getopt_long(count, arguments, "hV", options.data(), &index)) {
            case kFlag:
                *flags[static_cast<std::size_t>(index)].isGiven = true;
                break;
            case -1:
                if (optind < count) {
                    print(stderr, std::string(name) + ": unexpected argument '" + arguments[optind] + "'\n");
                    return wrongUsage(name);
                }
                return std::nullopt;
            case 'h':
                print(stdout, help);
                return 0;
            case 'V':
                print(stdout, std::string(name) + " " + ksw_version() + "\n");
                return 0;
            default:
                return wrongUsage(name);
        }
    }
}

void complain(std::string_view name, std::string_view text) {
    print(stderr, std::string(name) + ": " + std::string(text) + "\n");
}

int failed(std::string_view name, const Error& error) {
    const std::string text(error.localizedDescription().empty() ? error.description()
                                                                : std::string(error.localizedDescription()));
    complain(name, text);
    return 1;
}

}  // namespace ksw::servers
