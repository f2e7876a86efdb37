#include "tests/support/temp_folder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace ksw::test {

TempFolder::TempFolder() {
    std::string pattern = std::filesystem::canonical(std::filesystem::temp_directory_path()) / "ksw-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("no temporary folder at " + pattern);
    }
    path_ = pattern;
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string TempFolder::at(std::string_view name) const {
    return path_ + "/" + std::string(name);
}

std::string TempFolder::makeFolder(std::string_view name) const {
    std::filesystem::create_directories(at(name));
    return at(name);
}

std::string TempFolder::writeFile(std::string_view name, std::string_view content) const {
    std::filesystem::create_directories(std::filesystem::path(at(name)).parent_path());
    std::ofstream file(at(name));
    file.exceptions(std::ofstream::failbit | std::ofstream::badbit);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    return at(name);
}

}  // namespace ksw::test
