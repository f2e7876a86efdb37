// bookmark_support.h: what the tests of bookmarks share.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include <kestrelwood/KSWAdditions.h>

#include "platform/facts/bookmark_blob.h"
#include "tests/support/environment.h"
#include "tests/support/temp_folder.h"

namespace ksw::test {

/// A folder for files, with a home in it.
class BookmarkTest : public testing::Test {
protected:
    struct Answer {
        std::optional<std::string> path;
        bool isStale = false;
        std::optional<Error> error;

        friend bool operator==(const Answer&, const Answer&) = default;
        friend void PrintTo(const Answer& answer, std::ostream* stream) {
            *stream << answer.path.value_or("none") << (answer.isStale ? " (stale)" : "")
                    << (answer.error ? " " + answer.error->description() : std::string());
        }
    };

    static Data make(const std::string& path) {
        const std::optional<Data> bookmark = __ksw_bookmarkDataWithURL(URL::fileURL(path));
        EXPECT_TRUE(bookmark.has_value()) << path;
        return bookmark.value_or(Data());
    }

    static Answer resolve(const Data& bookmark, std::uint64_t options = 0x300) {
        Answer answer;
        const std::optional<URL> url =
            __ksw_resolveBookmarkWithOptions(bookmark, options, std::nullopt, &answer.isStale, &answer.error);
        answer.path = url ? std::optional(url->path()) : std::nullopt;
        return answer;
    }

    static Answer at(const std::string& path) { return {path, false, std::nullopt}; }
    static Answer staleAt(const std::string& path) { return {path, true, std::nullopt}; }
    static Answer notFound(const std::string& path) {
        return {std::nullopt, false, Error(ObjectError::NoSuchFile, "\"" + path + "\" does not exist")};
    }

    /// The bookmark with something in it changed.
    template <class Change>
    static Data changed(const Data& bookmark, Change change) {
        facts::BookmarkContent content = *facts::readBookmark(bookmark);
        change(content);
        return *facts::writeBookmark(content, facts::recordedValues(content));
    }

    TempFolder folder_;
    ScopedVariable home_{"HOME", folder_.makeFolder("home")};
    ScopedVariable data_{"XDG_DATA_HOME", std::nullopt};
    ScopedVariable language_{"LANGUAGE", "en"};
};

}  // namespace ksw::test
