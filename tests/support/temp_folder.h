// temp_folder.h: a folder of a test's own, removed with all that is in it when the object goes.
#pragma once

#include <string>
#include <string_view>

namespace ksw::test {

class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    /// Its canonical path, without a slash at the end.
    const std::string& path() const { return path_; }
    /// The path of a name in it.
    std::string at(std::string_view name) const;
    /// Makes a folder in it, with those above it; gives its path.
    std::string makeFolder(std::string_view name) const;
    /// Writes a file in it, with the folders above it; gives its path.
    std::string writeFile(std::string_view name, std::string_view content) const;

private:
    std::string path_;
};

}  // namespace ksw::test
