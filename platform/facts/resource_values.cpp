#include "platform/facts/resource_values.h"

#include <cstdint>
#include <utility>

#include "platform/base/paths.h"
#include "platform/facts/localized_name.h"
#include "platform/host/bundles.h"
#include "platform/host/file_facts.h"
#include "platform/host/sys.h"

namespace ksw::facts {

namespace {

struct File {
    const std::string& path;
    const host::FileFacts& facts;
};

Value identifierBytes(const host::FileIdentifier& identifier) {
    Data bytes;
    for (std::uint64_t word :
         {identifier.device, identifier.inode, static_cast<std::uint64_t>(identifier.birthSeconds),
          std::uint64_t{identifier.birthNanoseconds}}) {
        for (unsigned shift = 64; shift > 0; shift -= 8) {
            bytes.push_back(static_cast<std::uint8_t>(word >> (shift - 8)));
        }
    }
    return bytes;
}

Value canonicalPath(const File& file) {
    Result<std::string> path = host::canonicalPath(file.path);
    return path ? Value(std::move(*path)) : Value();
}

bool isPackage(const File& file) {
    return file.facts.isDirectory && !host::bundleExtension(file.path).empty();
}

struct Row {
    std::string_view key;
    Value (*value)(const File& file);
};

constexpr Row kRows[] = {
    {kResourceKeyName, [](const File& file) { return Value(lastComponent(file.path)); }},
    {kResourceKeyLocalizedName, [](const File& file) { return Value(localizedName(file.path, file.facts)); }},
    {kResourceKeyPath, [](const File& file) { return Value(file.path); }},
    {kResourceKeyCanonicalPath, canonicalPath},
    {kResourceKeyIsDirectory, [](const File& file) { return Value(file.facts.isDirectory); }},
    {kResourceKeyIsRegularFile, [](const File& file) { return Value(file.facts.isRegularFile); }},
    {kResourceKeyIsPackage, [](const File& file) { return Value(isPackage(file)); }},
    {kResourceKeyIsApplication, [](const File& file) { return Value(file.facts.isApplication); }},
    {kResourceKeyIsExecutable, [](const File& file) { return Value(host::sys::checkExecutable(file.path).ok()); }},
    {kResourceKeyIsVolume,
     [](const File& file) { return Value(file.facts.isDirectory && host::isTopOfVolume(file.path)); }},
    {kResourceKeyContentModificationDate,
     [](const File& file) { return Value(file.facts.contentModificationDate); }},
    {kResourceKeyFileIdentifier, [](const File& file) { return identifierBytes(file.facts.identifier); }},
};

}  // namespace

Dictionary resourceValues(const std::string& path, std::span<const std::string_view> keys) {
    Dictionary values;
    const Result<host::FileFacts> facts = host::fileFacts(path);
    if (!facts) {
        return values;
    }
    for (std::string_view key : keys) {
        for (const Row& row : kRows) {
            if (row.key == key) {
                if (Value value = row.value({path, *facts}); !value.isNull()) {
                    values.insert_or_assign(std::string(key), std::move(value));
                }
            }
        }
    }
    return values;
}

std::optional<Value> resourceValue(const std::string& path, std::string_view key) {
    Dictionary values = resourceValues(path, std::span(&key, 1));
    return values.empty() ? std::nullopt : std::optional(std::move(values.begin()->second));
}

bool isResource(const std::string& path, std::string_view key) {
    const std::optional<Value> value = resourceValue(path, key);
    const bool* flag = value ? value->as<bool>() : nullptr;
    return flag != nullptr && *flag;
}

bool hasFile(const std::optional<URL>& url) {
    return url && url->isFileURL() && host::fileExists(url->path());
}

}  // namespace ksw::facts
