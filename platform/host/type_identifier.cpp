#include "platform/host/type_identifier.h"

#include "platform/host/bundles.h"
#include "platform/host/file_facts.h"

namespace ksw::host {

namespace {

constexpr std::string_view kApplicationType = "com.velmont.type.application";
constexpr std::string_view kBundleType = "com.velmont.type.bundle";

}  // namespace

Result<std::string_view> typeIdentifier(const std::string& path) {
    const Result<FileFacts> facts = fileFacts(path);
    if (!facts) {
        return facts.error();
    }
    if (!facts->isDirectory) {
        return std::string_view(facts->isRegularFile ? "com.velmont.type.file" : "com.velmont.type.special");
    }
    if (facts->isApplication) {
        return kApplicationType;
    }
    return bundleExtension(path).empty() ? std::string_view("com.velmont.type.folder") : kBundleType;
}

bool conformsToBundle(std::string_view type) {
    return type == kApplicationType || type == kBundleType;
}

}  // namespace ksw::host
