#include "platform/facts/bundle.h"

#include <string_view>
#include <utility>

#include "platform/base/limits.h"
#include "platform/base/paths.h"
#include "platform/facts/status.h"
#include "platform/host/bundles.h"
#include "platform/host/file_facts.h"
#include "platform/host/sys.h"
#include "platform/plist/property_list.h"

namespace ksw::facts {

namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NONBLOCK;
constexpr std::string_view kExecutableKey = "QCBundleExecutable";

Error badBundle(const Error& reason) {
    return statusError(CodeStatus::BadBundle, reason.localizedDescription());
}

Result<UniqueFd> openFolder(int folder, const std::string& name) {
    Result<UniqueFd> opened = host::sys::openAt(folder, name, kFolderFlags | O_NOFOLLOW);
    return opened ? std::move(opened) : Result<UniqueFd>(badBundle(opened.error()));
}

}  // namespace

Result<Data> readInformation(const CodeFile& file) {
    const Result<FileStamp> stamp = file.stamp();
    if (!stamp) {
        return stamp.error();
    }
    if (stamp->size > limits::kPropertyListFileMax) {
        return statusError(CodeStatus::BadBundle, "its information property list is too large");
    }
    Data content(static_cast<std::size_t>(stamp->size));
    if (Status status = file.read(0, content); !status) {
        return status.error();
    }
    return content;
}

std::string executableName(const std::string& path, const Dictionary& information) {
    const std::string_view bundle = lastComponent(path);
    std::string name(bundle.substr(0, bundle.size() - host::kApplicationExtension.size()));
    if (const auto given = information.find(kExecutableKey); given != information.end()) {
        const auto* text = given->second.as<std::string>();
        name = text == nullptr ? std::string() : *text;
    }
    const bool isPlain =
        name.find_first_of(std::string_view("/\0", 2)) == std::string::npos && name != "." && name != "..";
    return isPlain ? name : std::string();
}

bool isBundle(const std::string& path) {
    return isBundle(path, path);
}

bool isBundle(const std::string& path, const std::string& readingPath) {
    // Most paths are told by their ends alone.
    if (host::bundleExtension(path) != host::kApplicationExtension) {
        return false;
    }
    const Result<host::FileFacts> facts = host::fileFacts(readingPath);
    return facts && facts->isDirectory;
}

Result<BundleFiles> openBundle(const std::string& path) {
    return openBundle(path, path);
}

Result<BundleFiles> openBundle(const std::string& path, const std::string& readingPath) {
    const Result<UniqueFd> bundle = host::sys::open(readingPath, kFolderFlags);
    if (!bundle) {
        return fileError(bundle.error());
    }
    const Result<UniqueFd> contents = openFolder(bundle->get(), "Contents");
    if (!contents) {
        return contents.error();
    }
    const Result<CodeFile> information = CodeFile::openAt(contents->get(), "Info.plist");
    Result<Data> content = information ? readInformation(*information) : Result<Data>(information.error());
    if (!content) {
        return badBundle(content.error());
    }
    const Result<Value> list = plist::read(*content);
    const Dictionary* dictionary = list ? list->as<Dictionary>() : nullptr;
    std::string name = dictionary == nullptr ? std::string() : executableName(path, *dictionary);
    if (name.empty()) {
        return statusError(CodeStatus::BadBundle, "its information property list names no main executable");
    }
    Result<UniqueFd> folder = openFolder(contents->get(), "Linux");
    if (!folder) {
        return folder.error();
    }
    Result<CodeFile> executable = CodeFile::openAt(folder->get(), name);
    if (!executable) {
        return badBundle(executable.error());
    }
    return BundleFiles{std::move(*folder), std::move(name), std::move(*executable), std::move(*content)};
}

}  // namespace ksw::facts
