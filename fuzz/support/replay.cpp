// replay.cpp: gives each file of the folders named on the command line to a fuzzer's function, once.
// It makes an ordinary program of a fuzzer, so that its seeds are run by every compiler and in every preset.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

/// The file's bytes; none when it cannot be read.
std::vector<char> contents(const std::filesystem::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// How many files were replayed.
std::size_t replayFolder(const std::filesystem::path& folder) {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file()) {
            const auto bytes = contents(entry.path());
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
            ++count;
        }
    }
    return count;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    std::size_t count = 0;
    try {
        for (int i = 1; i < argumentCount; ++i) {
            count += replayFolder(arguments[i]);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    std::printf("%zu inputs replayed\n", count);
    return count == 0 ? 1 : 0;
}
