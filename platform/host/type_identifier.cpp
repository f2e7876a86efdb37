#include "platform/host/type_identifier.h"

#include <algorithm>
#include <array>

#include "platform/host/bundles.h"
#include "platform/host/file_facts.h"

namespace ksw::host {

namespace {

struct BundleType {
    std::string_view extension;
    std::string_view type;
};

constexpr std::array kBundleTypes = {
    BundleType{kApplicationExtension, "com.velmont.type.application"},
    BundleType{".bundle", "com.velmont.type.bundle"},
};

}  // namespace

Result<std::string_view> typeIdentifier(const std::string& path) {
    const Result<FileFacts> facts = fileFacts(path);
    if (!facts) {
        return facts.error();
    }
    if (!facts->isDirectory) {
        return std::string_view(facts->isRegularFile ? "com.velmont.type.file" : "com.velmont.type.special");
    }
    const auto* const found = std::find_if(
        kBundleTypes.begin(), kBundleTypes.end(),
        [extension = bundleExtension(path)](const BundleType& row) { return row.extension == extension; });
    return found == kBundleTypes.end() ? std::string_view("com.velmont.type.folder") : found->type;
}

bool conformsToBundle(std::string_view type) {
    return std::any_of(kBundleTypes.begin(), kBundleTypes.end(),
                       [&](const BundleType& row) { return row.type == type; });
}

}  // namespace ksw::host
