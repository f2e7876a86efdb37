#include "platform/facts/application.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/base/limits.h"
#include "platform/base/paths.h"
#include "platform/base/utf8.h"
#include "platform/facts/bundle.h"
#include "platform/facts/code.h"
#include "platform/facts/localized_name.h"
#include "platform/host/file_facts.h"
#include "platform/host/sys.h"
#include "platform/plist/property_list.h"

namespace ksw::facts {

namespace {

constexpr std::string_view kIdentifierKey = "QCBundleIdentifier";
constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NONBLOCK;

/// Whether somebody else than the owners may have written what is open.
Status checkOwner(int fd, const std::string& path, const Owners& owners) {
    const Result<struct ::stat> facts = host::sys::fileStatus(fd);
    if (!facts) {
        return facts.error();
    }
    return owners.own(*facts) ? Status() : Status(host::sys::callError(EPERM, "open", path));
}

/// What may stand for an application: some readable text without control characters.
bool isIdentifier(const std::string* text) {
    return text != nullptr && !text->empty() && text->size() <= limits::kCodeIdentifierMax && isUtf8(*text) &&
           std::none_of(text->begin(), text->end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; });
}

bool isRegularFile(const std::string& path) {
    const auto facts = host::sys::statx(path, AT_SYMLINK_NOFOLLOW, STATX_TYPE);
    return facts && S_ISREG(facts->stx_mode);
}

}  // namespace

bool Owners::own(const struct ::stat& facts) const {
    const bool isTheirs = facts.st_uid == user || facts.st_uid == administrator;
    const bool mayOthersWrite =
        (facts.st_mode & S_IWOTH) != 0 || ((facts.st_mode & S_IWGRP) != 0 && facts.st_gid != facts.st_uid);
    return isTheirs && !mayOthersWrite;
}

Result<UniqueFd> openOwnedFolder(const std::string& path, const Owners& owners) {
    Result<UniqueFd> folder = host::sys::openWithoutLinks(path, kFolderFlags);
    if (!folder) {
        return folder;
    }
    if (Status status = checkOwner(folder->get(), path, owners); !status) {
        return status.error();
    }
    return folder;
}

Result<ReadApplication> readApplication(const std::string& path, const Owners& owners) {
    if (const Result<UniqueFd> bundle = openOwnedFolder(path, owners); !bundle) {
        return bundle.error();
    }
    const std::string contents = path + "/Contents";
    const Result<UniqueFd> folder = openOwnedFolder(contents, owners);
    if (!folder) {
        return folder.error();
    }
    const Result<CodeFile> file = CodeFile::openAt(folder->get(), "Info.plist");
    if (!file) {
        return file.error();
    }
    if (Status status = checkOwner(file->fd(), contents + "/Info.plist", owners); !status) {
        return status.error();
    }
    const Result<Data> content = readInformation(*file);
    if (!content) {
        return content.error();
    }
    const Result<Value> list = plist::read(*content);
    if (!list) {
        return list.error();
    }
    const auto* information = list->as<Dictionary>();
    const auto* identifier = information == nullptr ? nullptr : find<std::string>(*information, kIdentifierKey);
    if (!isIdentifier(identifier)) {
        return Error(FormatError::WrongType, "no identifier");
    }
    const std::string executable = executableName(path, *information);
    const bool isWhole = !executable.empty() && isRegularFile(contents + "/Linux/" + executable);
    return ReadApplication{std::make_shared<const Application>(
                               Application{*identifier, path, URL::fileURL(path, PathKind::Directory), !isWhole}),
                           content->size()};
}

std::string Application::localizedName() const {
    const Result<host::FileFacts> facts = host::fileFacts(path);
    return facts ? facts::localizedName(path, *facts) : std::string(lastComponent(path));
}

std::optional<std::string> Application::team() const {
    const Result<StaticCode> code = StaticCode::open(path);
    const auto facts = code ? code->facts() : Result<std::shared_ptr<const CodeFacts>>(code.error());
    return facts && (*facts)->source == "embedded" ? (*facts)->team : std::nullopt;
}

}  // namespace ksw::facts
