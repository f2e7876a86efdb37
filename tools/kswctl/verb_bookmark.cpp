// Bookmarks of files, as the framework makes and reads them.
#include <cstdint>
#include <iostream>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <unistd.h>

#include <kestrelwood/KSWAdditions.h>
#include <kestrelwood/resource_keys.h>

#include "tools/common/input_file.h"
#include "tools/common/text.h"
#include "tools/kswctl/place.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

/// What a bookmark may record, in the order in which it is shown.
constexpr ksw::StringConstant kKeys[] = {
    ksw::kResourceKeyPath,          ksw::kResourceKeyName,          ksw::kResourceKeyLocalizedName,
    ksw::kResourceKeyIsDirectory,   ksw::kResourceKeyIsRegularFile, ksw::kResourceKeyIsPackage,
    ksw::kResourceKeyIsApplication, ksw::kResourceKeyIsExecutable,  ksw::kResourceKeyIsVolume,
};

struct Level {
    std::int64_t value;
    const char* name;
};

constexpr Level kLevels[] = {{ksw::kBookmarkMatchFile, "same file"}, {ksw::kBookmarkMatchPath, "same path"}};

/// A bookmark agrees with itself; other bytes agree with nothing.
Outcome<ksw::Data> bookmarkIn(const std::string& path) {
    Outcome<ksw::Data> bookmark = readInputFile(path);
    const auto* bytes = std::get_if<ksw::Data>(&bookmark);
    if (bytes != nullptr && !__ksw_matchBookmark(*bytes, *bytes, ksw::kBookmarkMatchPath)) {
        return Complaint{ExitStatus::Failed, path + ": not a bookmark"};
    }
    return bookmark;
}

/// Bytes for a program as they are, and nothing that a terminal could obey.
void printLine(const std::string& text) {
    std::cout << (isatty(STDOUT_FILENO) == 1 ? printable(text) : text) << '\n';
}

ExitStatus written() {
    std::cout.flush();
    return std::cout.good() ? ExitStatus::Done : complain(Complaint{ExitStatus::Failed, "cannot write"});
}

}  // namespace

ExitStatus makeBookmark(const Options& options) {
    if (!options.json && isatty(STDOUT_FILENO) == 1) {
        return complain(Complaint{ExitStatus::Usage, "a bookmark is nothing for a terminal; write it into a file"});
    }
    const std::optional<ksw::URL> url = urlOf(options.location);
    const std::optional<ksw::Data> bookmark = url ? __ksw_bookmarkDataWithURL(url) : std::nullopt;
    if (!bookmark) {
        return complain(Complaint{ExitStatus::Failed, options.location + ": no bookmark can be made of it"});
    }
    if (options.json) {
        print(Record::object({{"bookmark", recordOf(ksw::Value(*bookmark))}}), Form::Json);
    } else {
        std::cout.write(reinterpret_cast<const char*>(bookmark->data()),
                        static_cast<std::streamsize>(bookmark->size()));
    }
    return written();
}

ExitStatus showBookmark(const Options& options) {
    const Outcome<ksw::Data> read = bookmarkIn(options.bookmark);
    if (const auto* complaint = std::get_if<Complaint>(&read)) {
        return complain(*complaint);
    }
    const auto& bookmark = std::get<ksw::Data>(read);
    Record record = Record::object({
        {"displayName", orNull(__ksw_displayName(bookmark))},
        {"isFileBookmark", __ksw_isFileBookmark(bookmark)},
    });
    for (const ksw::StringConstant& key : kKeys) {
        const std::optional<ksw::Value> value = __ksw_resourcePropertyForKey(bookmark, key);
        record[std::string(key)] = value ? recordOf(*value) : Record(nullptr);
    }
    print(record, formOf(options));
    return ExitStatus::Done;
}

ExitStatus resolveBookmark(const Options& options) {
    const Outcome<ksw::Data> read = bookmarkIn(options.bookmark);
    if (const auto* complaint = std::get_if<Complaint>(&read)) {
        return complain(*complaint);
    }
    bool isStale = false;
    std::optional<ksw::Error> error;
    constexpr std::uint64_t quietly = ksw::kBookmarkResolutionWithoutUI | ksw::kBookmarkResolutionWithoutMounting;
    const std::optional<ksw::URL> url =
        __ksw_resolveBookmarkWithOptions(std::get<ksw::Data>(read), quietly, std::nullopt, &isStale, &error);
    if (!url) {
        const std::string reason = error ? std::string(error->localizedDescription()) : "not found";
        return complain(Complaint{ExitStatus::Failed, reason});
    }
    const std::string place = url->isFileURL() ? url->path() : url->absoluteString();
    if (options.json) {
        print(Record::object({{"path", url->isFileURL() ? Record(place) : Record(nullptr)},
                              {"url", url->absoluteString()},
                              {"stale", isStale}}),
              Form::Json);
    } else {
        printLine(place);
    }
    return written();
}

ExitStatus matchBookmarks(const Options& options) {
    std::vector<ksw::Data> bookmarks;
    for (const std::string& path : {options.bookmark, options.otherBookmark}) {
        Outcome<ksw::Data> read = bookmarkIn(path);
        if (const auto* complaint = std::get_if<Complaint>(&read)) {
            return complain(*complaint);
        }
        bookmarks.push_back(std::get<ksw::Data>(std::move(read)));
    }
    Level level{ksw::kBookmarkMatchNone, "different"};
    for (const Level& each : kLevels) {
        if (each.value > level.value && __ksw_matchBookmark(bookmarks[0], bookmarks[1], each.value)) {
            level = each;
        }
    }
    if (options.json) {
        print(Record::object({{"level", level.value}, {"match", level.name}}), Form::Json);
    } else {
        printLine(level.name);
    }
    return level.value >= ksw::kBookmarkMatchFile ? ExitStatus::Done : ExitStatus::Failed;
}

}  // namespace tools::kswctl
