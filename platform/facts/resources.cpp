#include "platform/facts/resources.h"

#include <utility>

#include "platform/host/file_facts.h"
#include "platform/host/host_root.h"
#include "platform/plist/property_list.h"

namespace ksw::facts {

namespace {

struct ShippedBundle {
    std::string_view identifier;
    std::string_view resources;
};

constexpr ShippedBundle kShippedBundles[] = {{kFrameworkBundle, "/usr/share/kestrelwood/Resources"}};

}  // namespace

std::optional<std::string> resourceFolder(std::string_view bundleIdentifier) {
    for (const ShippedBundle& bundle : kShippedBundles) {
        if (bundle.identifier == bundleIdentifier) {
            return host::hostPath(bundle.resources);
        }
    }
    return std::nullopt;
}

std::string resourceFolderAtPath(std::string_view bundlePath) {
    return host::hostPath(bundlePath).append("/Contents/Resources");
}

Result<Dictionary> readResource(const std::string& folder, std::string_view name, std::size_t sizeMax) {
    const std::string path = std::string(folder).append("/").append(name).append(".plist");
    const Result<Data> bytes = host::readFile(path, sizeMax);
    if (!bytes) {
        return bytes.error();
    }
    Result<Value> list = plist::read(*bytes);
    if (!list) {
        return list.error();
    }
    auto* dictionary = list->as<Dictionary>();
    if (dictionary == nullptr) {
        return Error(FormatError::WrongType, "not a dictionary");
    }
    return std::move(*dictionary);
}

bool hasInternalContent(std::string_view subsystem) {
    return host::fileExists(host::hostPath("/usr/share/kestrelwood/internal/").append(subsystem));
}

}  // namespace ksw::facts
