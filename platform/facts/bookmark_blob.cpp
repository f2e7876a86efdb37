#include "platform/facts/bookmark_blob.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <string>
#include <utility>

#include <kestrelwood/KSWAdditions.h>

#include "platform/archive/cbor_reader.h"
#include "platform/archive/cbor_writer.h"
#include "platform/base/limits.h"
#include "platform/base/url_parts.h"
#include "platform/base/utf8.h"
#include "platform/facts/within_memory.h"
#include "platform/host/sys.h"

namespace ksw::facts {

namespace {

using archive::Reader;
using archive::ValueKinds;

constexpr std::uint64_t kVersion = 1;
constexpr std::uint64_t kNanosecondsMax = 999'999'999;
constexpr std::size_t kKeyMax = 64;
constexpr std::size_t kIdentifierParts = 5;
constexpr std::size_t kHandleParts = 2;
constexpr ValueKinds kValueKinds = ValueKinds::Number | ValueKinds::String | ValueKinds::Data | ValueKinds::Date;
constexpr std::string_view kPlace = "bookmark";

bool isPath(std::string_view path) {
    return !path.empty() && path.find('\0') == std::string_view::npos;
}

/// A file is named by its path alone, which is checked as a path.
bool isUrlOfNoFile(std::string_view text) {
    const auto scheme = schemeOf(text);
    if (!isUrlReference(text) || !scheme) {
        return false;
    }
    constexpr std::string_view file = "file";
    return !std::equal(scheme->begin(), scheme->end(), file.begin(), file.end(),
                       [](char left, char right) { return (left | 0x20) == right; });
}

class BlobReader {
public:
    explicit BlobReader(Bytes bookmark)
        : bookmark_(bookmark), budget_(bookmark.size()), reader_(bookmark, budget_) {}

    Result<BookmarkContent> read() {
        if (bookmark_.size() > limits::kBookmarkMax) {
            reader_.fail(FormatError::LimitPassed, "too long");
        }
        std::size_t count = 0;
        bool going = reader_.enterMap(count);
        for (std::size_t pair = 0; going && pair < count; ++pair) {
            std::string_view key;
            going = reader_.text(key, kKeyMax) && value(key);
        }
        if (!going || !reader_.end() || !check()) {
            return reader_.error(kPlace);
        }
        return content_;
    }

private:
    struct Row {
        std::string_view key;
        bool (BlobReader::*read)();
    };

    bool value(std::string_view key) {
        static constexpr Row kRows[] = {{"version", &BlobReader::version}, {"path", &BlobReader::path},
                                        {"url", &BlobReader::url},         {"file", &BlobReader::file},
                                        {"handle", &BlobReader::handle},   {"values", &BlobReader::values}};
        for (const Row& row : kRows) {
            if (row.key == key) {
                const unsigned bit = 1U << static_cast<unsigned>(&row - kRows);
                if ((seen_ & bit) != 0) {
                    return reader_.fail(FormatError::Malformed, "a key twice");
                }
                seen_ |= bit;
                return (this->*row.read)();
            }
        }
        return reader_.skip();
    }

    bool version() {
        std::uint64_t version = 0;
        return reader_.unsignedInteger(version) &&
               (version == kVersion || reader_.fail(FormatError::Unsupported, "another version"));
    }

    bool path() {
        Bytes bytes;
        if (!reader_.bytes(bytes, limits::kBookmarkPathMax)) {
            return false;
        }
        content_.path = {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
        return isPath(content_.path) || reader_.fail(FormatError::Malformed, "not a path");
    }

    bool url() {
        return reader_.text(content_.url, limits::kBookmarkPathMax) &&
               (isUrlOfNoFile(content_.url) || reader_.fail(FormatError::Malformed, "not a URL, or a file's"));
    }

    bool file() {
        FileRecord record;
        host::FileIdentifier& identifier = record.identifier;
        std::size_t count = 0;
        std::uint64_t nanoseconds = 0;
        if (!reader_.enterArray(count) || (count != kIdentifierParts && !wrongCount()) ||
            !reader_.unsignedInteger(record.volume) || !reader_.unsignedInteger(identifier.device) ||
            !reader_.unsignedInteger(identifier.inode) || !reader_.integer(identifier.birthSeconds) ||
            !reader_.unsignedInteger(nanoseconds)) {
            return false;
        }
        reader_.leave();
        if (nanoseconds > kNanosecondsMax) {
            return reader_.fail(FormatError::Malformed, "not a part of a second");
        }
        identifier.birthNanoseconds = static_cast<std::uint32_t>(nanoseconds);
        content_.file = record;
        return true;
    }

    bool handle() {
        std::size_t count = 0;
        std::int64_t type = 0;
        if (!reader_.enterArray(count) || (count != kHandleParts && !wrongCount()) || !reader_.integer(type) ||
            !reader_.bytes(content_.handle, host::sys::kFileHandleMax)) {
            return false;
        }
        reader_.leave();
        content_.handleType = static_cast<int>(type);
        return std::in_range<int>(type) || reader_.fail(FormatError::Malformed, "not a type of handles");
    }

    bool values() {
        const std::size_t begin = reader_.position();
        if (reader_.peek() != archive::ItemKind::Map) {
            return reader_.fail(FormatError::WrongType, "map expected");
        }
        if (!reader_.skip()) {
            return false;
        }
        content_.values = bookmark_.subspan(begin, reader_.position() - begin);
        return true;
    }

    bool wrongCount() { return reader_.fail(FormatError::Malformed, "too few or too many parts"); }

    bool check() {
        if ((seen_ & 1U) == 0) {
            return reader_.fail(FormatError::Malformed, "no version");
        }
        return content_.path.empty() != content_.url.empty() ||
               reader_.fail(FormatError::Malformed, "one of a path and a URL expected");
    }

    Bytes bookmark_;
    archive::DecodeBudget budget_;
    Reader reader_;
    BookmarkContent content_;
    unsigned seen_ = 0;  // a bit for each row
};

Bytes bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

void writeFile(archive::Writer& writer, const FileRecord& file) {
    writer.text("file");
    writer.array(kIdentifierParts);
    writer.unsignedInteger(file.volume);
    writer.unsignedInteger(file.identifier.device);
    writer.unsignedInteger(file.identifier.inode);
    writer.integer(file.identifier.birthSeconds);
    writer.unsignedInteger(file.identifier.birthNanoseconds);
}

}  // namespace

Result<BookmarkContent> readBookmark(Bytes bookmark) {
    return BlobReader(bookmark).read();
}

Dictionary recordedValues(const BookmarkContent& content) {
    if (content.values.empty()) {
        return {};
    }
    Result<Dictionary> values = withinMemory([&]() -> Result<Dictionary> {
        archive::DecodeBudget budget(content.values.size());
        Reader reader(content.values, budget);
        Dictionary read;
        return reader.dictionary(read, kValueKinds) ? Result<Dictionary>(std::move(read)) : reader.error(kPlace);
    });
    return values ? std::move(*values) : Dictionary();
}

Result<Data> writeBookmark(const BookmarkContent& content, Dictionary values) {
    if (std::max(content.path.size(), content.url.size()) > limits::kBookmarkPathMax) {
        return Error(FormatError::LimitPassed, "bookmark: too long a path");
    }
    std::erase_if(values, [](const auto& entry) {
        const auto* text = entry.second.template as<std::string>();
        return text != nullptr && !isUtf8(*text);
    });
    archive::Writer writer;
    writer.map(3U + (content.file ? 1U : 0U) + (content.handle.empty() ? 0U : 1U));
    writer.text("version");
    writer.unsignedInteger(kVersion);
    if (content.url.empty()) {
        writer.text("path");
        writer.bytes(bytesOf(content.path));
    } else {
        writer.text("url");
        writer.text(content.url);
    }
    if (content.file) {
        writeFile(writer, *content.file);
    }
    if (!content.handle.empty()) {
        writer.text("handle");
        writer.array(kHandleParts);
        writer.integer(content.handleType);
        writer.bytes(content.handle);
    }
    writer.text("values");
    writer.dictionary(values);
    return writer.take();
}

bool isSameFile(const FileRecord& left, const FileRecord& right) {
    const host::FileIdentifier& here = left.identifier;
    const host::FileIdentifier& there = right.identifier;
    if (here.inode != there.inode || here.birthSeconds != there.birthSeconds ||
        here.birthNanoseconds != there.birthNanoseconds) {
        return false;
    }
    // The device's number may be another one each time the volume is mounted.
    return left.volume != 0 && right.volume != 0 ? left.volume == right.volume : here.device == there.device;
}

std::int64_t compareBookmarks(const BookmarkContent& left, const BookmarkContent& right) {
    if (!left.url.empty() || !right.url.empty()) {
        return left.url == right.url ? kBookmarkMatchFile : kBookmarkMatchNone;
    }
    if (left.file && right.file && isSameFile(*left.file, *right.file)) {
        return kBookmarkMatchFile;
    }
    return left.path == right.path ? kBookmarkMatchPath : kBookmarkMatchNone;
}

}  // namespace ksw::facts
