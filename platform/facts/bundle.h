// bundle.h: the parts of an application bundle that its signature covers.
#pragma once

#include <optional>
#include <string>

#include "platform/facts/code_file.h"

namespace ksw::facts {

/// The main executable of a bundle, open, and its information property list as it was read; both found inside one
/// open folder and through no link.
struct BundleFiles {
    UniqueFd executableFolder;  ///< Contents/Linux.
    std::string executableName;
    CodeFile executable;
    Data information;
};

/// Whether the path leads to a directory whose name ends in ".app".
bool isBundle(const std::string& path);
/// Whether what goes by `path` and is found at `readingPath` is one.
bool isBundle(const std::string& path, const std::string& readingPath);

/// The content of a bundle's information property list. Error: `BadBundle` when it is larger than
/// limits::kPropertyListFileMax, else why it cannot be read.
Result<Data> readInformation(const CodeFile& file);

/// The name of the main executable of the bundle at `path`: what its information property list says, else the
/// bundle's own. Empty when that is no plain name.
std::string executableName(const std::string& path, const Dictionary& information);

/// Error: `BadBundle` when a part is not there or the list cannot be read, else why a file cannot be.
Result<BundleFiles> openBundle(const std::string& path);
Result<BundleFiles> openBundle(const std::string& path, const std::string& readingPath);

}  // namespace ksw::facts
