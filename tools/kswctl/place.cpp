#include "tools/kswctl/place.h"

#include <algorithm>
#include <string_view>
#include <system_error>

namespace tools::kswctl {
namespace {

namespace fs = std::filesystem;

bool isLetter(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

bool mayBeInScheme(char character) {
    return isLetter(character) || (character >= '0' && character <= '9') || character == '+' || character == '-' ||
           character == '.';
}

bool hasScheme(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || !isLetter(text.front())) {
        return false;
    }
    const std::string_view scheme = text.substr(0, colon);
    return std::all_of(scheme.begin(), scheme.end(), mayBeInScheme);
}

}  // namespace

fs::path settled(const std::string& path) {
    std::error_code problem;
    fs::path whole = fs::absolute(path, problem).lexically_normal();
    if (!whole.has_filename()) {
        whole = whole.parent_path();
    }
    const fs::path folder = fs::weakly_canonical(whole.parent_path(), problem);
    return problem ? whole : folder / whole.filename();
}

bool isDirectory(const std::string& path) {
    std::error_code problem;
    return fs::is_directory(path, problem);
}

std::optional<ksw::URL> urlOf(const std::string& text) {
    if (hasScheme(text)) {
        return ksw::URL::fromString(text);
    }
    const std::string path = settled(text).native();
    return ksw::URL::fileURL(path, isDirectory(path) ? ksw::PathKind::Directory : ksw::PathKind::File);
}

}  // namespace tools::kswctl
