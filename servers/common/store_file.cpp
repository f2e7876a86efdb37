#include "servers/common/store_file.h"

#include <sqlite3.h>

#include <vector>

#include "platform/host/sys_files.h"
#include "servers/common/sqlite.h"

namespace ksw::servers {

namespace {

constexpr std::string_view kMagic{"SQLite format 3\0", 16};
constexpr std::size_t kHeaderSize = 100;
constexpr std::size_t kVersionOffset = 60;
constexpr std::size_t kReadSize = 65'536;
constexpr std::string_view kJournalEnding = kStoreFileEndings[1];
constexpr std::string_view kUnfinishedEnding = ".new";

Result<bool> isJournalThere(const std::string& path) {
    const Result<struct ::statx> facts =
        host::sys::statx(path + std::string(kJournalEnding), AT_SYMLINK_NOFOLLOW, STATX_SIZE);
    if (!facts) {
        return host::sys::isErrno(facts.error(), ENOENT) ? Result<bool>(false) : facts.error();
    }
    return facts->stx_size > 0;
}

/// Without its file a journal would be thrown away, with every record in it.
Result<StoreFile> missing(const std::string& path) {
    const Result<bool> isThere = isJournalThere(path);
    if (!isThere) {
        return isThere.error();
    }
    if (*isThere) {
        return databaseError(path, SQLITE_CORRUPT, "is gone, and its journal is there");
    }
    return StoreFile::Missing;
}

Status removeAll(const std::string& path) {
    for (const std::string_view ending : kStoreFileEndings) {
        Status removed = host::sys::unlink(path + std::string(ending));
        if (!removed && !host::sys::isErrno(removed.error(), ENOENT)) {
            return removed;
        }
    }
    return {};
}

Status syncFileAt(const std::string& path) {
    const Result<UniqueFd> file = host::sys::open(path, O_RDONLY | O_NOFOLLOW);
    return file ? host::sys::syncFile(file->get()) : Status(file.error());
}

}  // namespace

std::string folderOf(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

Error newerSchemaError(const std::string& path, std::int64_t version, std::int64_t versionMax) {
    return databaseError(path, SQLITE_SCHEMA,
                         "has schema " + std::to_string(version) + ", and this daemon knows none above " +
                             std::to_string(versionMax) + "; it is left as it is");
}

Result<StoreFile> checkStoreFile(const std::string& path, std::int64_t versionMax) {
    const Result<UniqueFd> file = host::sys::open(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    if (!file) {
        return host::sys::isErrno(file.error(), ENOENT) ? missing(path) : file.error();
    }
    std::array<char, kHeaderSize> header{};
    const Result<host::sys::Transfer> got = host::sys::read(file->get(), header.data(), header.size());
    if (!got) {
        return got.error();
    }
    if (got->bytes == 0) {
        return missing(path);
    }
    if (got->bytes < kHeaderSize || std::string_view(header.data(), kMagic.size()) != kMagic) {
        return databaseError(path, SQLITE_NOTADB, "is not a database");
    }
    std::uint32_t version = 0;
    for (std::size_t index = kVersionOffset; index < kVersionOffset + 4; ++index) {
        version = (version << 8U) | static_cast<std::uint8_t>(header[index]);
    }
    if (version > versionMax) {
        return newerSchemaError(path, version, versionMax);
    }
    return StoreFile::Present;
}

Status readStoreFile(const std::string& path) {
    std::vector<char> block(kReadSize);
    for (const std::string_view ending : {std::string_view(), kJournalEnding}) {
        const Result<UniqueFd> file = host::sys::open(path + std::string(ending), O_RDONLY | O_NOFOLLOW);
        if (!file && host::sys::isErrno(file.error(), ENOENT)) {
            continue;
        }
        if (!file) {
            return file.error();
        }
        Result<host::sys::Transfer> got = host::sys::read(file->get(), block.data(), block.size());
        while (got && got->bytes > 0) {
            got = host::sys::read(file->get(), block.data(), block.size());
        }
        if (!got) {
            return got.error();
        }
    }
    return {};
}

Status makeStoreFile(const std::string& path, const std::function<Status(const std::string&)>& make) {
    // A start that got no further may have left its own behind.
    const std::string unfinished = path + std::string(kUnfinishedEnding);
    if (Status removed = removeAll(unfinished); !removed) {
        return removed;
    }
    if (Status made = make(unfinished); !made) {
        return made;
    }
    if (Status synchronised = syncFileAt(unfinished); !synchronised) {
        return synchronised;
    }
    // What an empty or former file left beside it belongs to no other.
    if (Status removed = removeAll(path); !removed) {
        return removed;
    }
    if (Status named = host::sys::rename(unfinished, path); !named) {
        return named;
    }
    return host::sys::syncFolder(folderOf(path));
}

}  // namespace ksw::servers
