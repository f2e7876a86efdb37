#include "platform/facts/replacement.h"

#include <utility>

#include <kestrelwood/values/uuid.h>

#include "platform/facts/status.h"
#include "platform/host/sys.h"

namespace ksw::facts {

namespace {

Error notWritable(const Error& reason) {
    return statusError(CodeStatus::NotWritable, reason.localizedDescription());
}

Status writable(const Status& status) {
    return status ? Status() : Status(notWritable(status.error()));
}

}  // namespace

Result<Replacement> Replacement::create(int folder) {
    std::string name = ".ksw-" + UUID::random().string();
    Result<UniqueFd> file = host::sys::openAt(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    if (!file) {
        return notWritable(file.error());
    }
    return Replacement(folder, std::move(name), std::move(*file));
}

Replacement::Replacement(Replacement&& other) noexcept
    : folder_(other.folder_), name_(std::exchange(other.name_, {})), file_(std::move(other.file_)) {}

Replacement::~Replacement() {
    if (!name_.empty()) {
        static_cast<void>(host::sys::unlinkAt(folder_, name_).ok());
    }
}

Status Replacement::append(Bytes bytes) {
    while (!bytes.empty()) {
        const Result<host::sys::Transfer> written = host::sys::write(file_.get(), bytes.data(), bytes.size());
        if (!written) {
            return notWritable(written.error());
        }
        bytes = bytes.subspan(written->bytes);
    }
    return {};
}

Status Replacement::takeOver(const CodeFile& old) {
    const Result<struct ::stat> facts = host::sys::fileStatus(old.fd());
    const Result<struct ::stat> own = facts ? host::sys::fileStatus(file_.get()) : facts;
    if (!facts || !own) {
        return notWritable(facts ? own.error() : facts.error());
    }
    if (own->st_uid != facts->st_uid || own->st_gid != facts->st_gid) {
        if (Status status = host::sys::changeOwner(file_.get(), facts->st_uid, facts->st_gid); !status) {
            return notWritable(status.error());
        }
    }
    // After the owner, whose change takes the set-user bits away. Attributes are given where that is possible.
    if (Status status = host::sys::changeMode(file_.get(), facts->st_mode & 07777U); !status) {
        return notWritable(status.error());
    }
    static_cast<void>(host::sys::copyAttributes(old.fd(), file_.get()).ok());
    return {};
}

Status Replacement::commit(const CodeFile& old, const FileStamp& stamp, const std::string& name) {
    if (Status status = takeOver(old); !status) {
        return status;
    }
    if (Status status = host::sys::syncFile(file_.get()); !status) {
        return notWritable(status.error());
    }
    const Result<struct ::stat> named = host::sys::statusAt(folder_, name);
    if (!named || stampOf(*named) != stamp) {
        return statusError(CodeStatus::ChangedMeanwhile);
    }
    if (Status status = host::sys::renameAt(folder_, name_, name); !status) {
        return notWritable(status.error());
    }
    name_.clear();
    return writable(host::sys::syncFile(folder_));
}

}  // namespace ksw::facts
