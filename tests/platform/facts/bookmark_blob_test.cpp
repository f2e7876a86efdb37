#include "platform/facts/bookmark_blob.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include <kestrelwood/KSWAdditions.h>

#include "platform/archive/cbor_writer.h"
#include "platform/base/limits.h"
#include "platform/host/sys.h"

namespace ksw::facts {
namespace {

using archive::Writer;

Bytes bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

Data map(std::size_t count, const std::function<void(Writer&)>& write) {
    Writer writer;
    writer.map(count);
    write(writer);
    return *writer.take();
}

/// A bookmark of "/a" with one key more.
Data with(std::string_view key, const std::function<void(Writer&)>& value) {
    return map(3, [&](Writer& writer) {
        writer.text("version");
        writer.unsignedInteger(1);
        writer.text("path");
        writer.bytes(bytesOf("/a"));
        writer.text(key);
        value(writer);
    });
}

/// One whose path or URL is this.
Data of(std::string_view key, const std::function<void(Writer&)>& value) {
    return map(2, [&](Writer& writer) {
        writer.text("version");
        writer.unsignedInteger(1);
        writer.text(key);
        value(writer);
    });
}

Data ofPath(std::string_view path) {
    return of("path", [&](Writer& writer) { writer.bytes(bytesOf(path)); });
}

Data ofUrl(std::string_view url) {
    return of("url", [&](Writer& writer) { writer.text(url); });
}

/// Why the bytes are refused: "CODE text"; empty when they are not.
std::string refusal(Bytes bookmark) {
    const Result<BookmarkContent> content = readBookmark(bookmark);
    if (content) {
        return {};
    }
    EXPECT_EQ(content.error().domain(), kFormatErrorDomain);
    return std::to_string(content.error().code()) + " " + std::string(content.error().localizedDescription());
}

TEST(ABookmarksBytes, AreReadAsTheyWereWritten) {
    const Data handle{1, 2, 3};
    BookmarkContent content;
    content.path = "/a\xFF b";
    content.file = FileRecord{7, {1, UINT64_MAX, -5, 999'999'999}};
    content.handleType = -2;
    content.handle = handle;
    const Dictionary values{{"b", true}, {"d", Date{1.5}}, {"n", 7}, {"r", 0.5}, {"s", "x"}, {"y", Data{9}}};
    const Data bookmark = *writeBookmark(content, values);
    const Result<BookmarkContent> read = readBookmark(bookmark);
    EXPECT_EQ(read->path, content.path);
    EXPECT_EQ(read->url, "");
    EXPECT_EQ(read->file->volume, 7U);
    EXPECT_EQ(read->file->identifier, content.file->identifier);
    EXPECT_EQ(read->handleType, -2);
    EXPECT_EQ(Data(read->handle.begin(), read->handle.end()), handle);
    EXPECT_EQ(recordedValues(*read), values);
    EXPECT_EQ(*writeBookmark(*read, values), bookmark);
}

TEST(ABookmarksBytes, LeaveOutWhatTheyCannotHold) {
    BookmarkContent content;
    content.path = "/a";
    const Data bookmark = *writeBookmark(content, {{"bad", "\xFF"}, {"good", "x"}});
    EXPECT_EQ(recordedValues(*readBookmark(bookmark)), (Dictionary{{"good", "x"}}));
}

TEST(ABookmarksBytes, HoldKeysInAnyOrderAndUnknownOnes) {
    const Data bookmark = map(3, [](Writer& writer) {
        writer.text("path");
        writer.bytes(bytesOf("/a"));
        writer.text("later");
        writer.array(2);
        writer.null();
        writer.map(0);
        writer.text("version");
        writer.unsignedInteger(1);
    });
    EXPECT_EQ(readBookmark(bookmark)->path, "/a");
}

TEST(ABookmarksBytes, HoldAPathOfTheGreatestLengthAndNoLonger) {
    const std::string longest(limits::kBookmarkPathMax, '/');
    EXPECT_EQ(refusal(ofPath(longest)), "");
    EXPECT_EQ(refusal(ofPath(longest + "/")), "4 bookmark: byte string too long");
    BookmarkContent content;
    content.path = longest;
    EXPECT_TRUE(writeBookmark(content, {}).ok());
    const std::string longer = longest + "/";
    content.path = longer;
    EXPECT_EQ(writeBookmark(content, {}).error(), Error(FormatError::LimitPassed, "bookmark: too long a path"));
}

TEST(ABookmarksBytes, HoldAHandleOfTheGreatestSizeAndNoLarger) {
    const auto handle = [](std::size_t size) {
        return with("handle", [&](Writer& writer) {
            writer.array(2);
            writer.integer(1);
            writer.bytes(Data(size));
        });
    };
    EXPECT_EQ(refusal(handle(host::sys::kFileHandleMax)), "");
    EXPECT_EQ(refusal(handle(host::sys::kFileHandleMax + 1)), "4 bookmark: byte string too long");
}

TEST(ABookmarksBytes, AreAsManyAsAFieldMayHaveAndNoMore) {
    const auto filled = [](std::size_t size) {
        return with("filler", [&](Writer& writer) { writer.bytes(Data(size)); });
    };
    const std::size_t rest = filled(1'000).size() - 1'000;
    const std::size_t most = limits::kBookmarkMax - rest;
    EXPECT_EQ(filled(most).size(), limits::kBookmarkMax);
    EXPECT_EQ(refusal(filled(most)), "");
    EXPECT_EQ(refusal(filled(most + 1)), "4 bookmark: too long");
}

TEST(ABookmarksBytes, HaveOneOfAPathAndAUrl) {
    EXPECT_EQ(refusal(of("later", [](Writer& writer) { writer.null(); })),
              "1 bookmark: one of a path and a URL expected");
    EXPECT_EQ(refusal(with("url", [](Writer& writer) { writer.text("https://x/"); })),
              "1 bookmark: one of a path and a URL expected");
}

TEST(ABookmarksBytes, HaveAPathThatIsOne) {
    EXPECT_EQ(refusal(ofPath("")), "1 bookmark: not a path");
    EXPECT_EQ(refusal(ofPath(std::string_view("/a\0b", 4))), "1 bookmark: not a path");
    EXPECT_EQ(refusal(of("path", [](Writer& writer) { writer.text("/a"); })), "2 bookmark: byte string expected");
}

TEST(ABookmarksBytes, HaveAUrlThatIsOneAndNoFiles) {
    EXPECT_EQ(refusal(ofUrl("https://example.com/a")), "");
    for (const char* url : {"file:///etc/passwd", "FiLe:/a", "a/b", "", "https://a b", "//host/a"}) {
        EXPECT_EQ(refusal(ofUrl(url)), "1 bookmark: not a URL, or a file's") << url;
    }
}

TEST(ABookmarksBytes, HaveAFileOfFiveNumbers) {
    const auto file = [](std::initializer_list<std::uint64_t> numbers) {
        return with("file", [&](Writer& writer) {
            writer.array(numbers.size());
            for (const std::uint64_t number : numbers) {
                writer.unsignedInteger(number);
            }
        });
    };
    EXPECT_EQ(refusal(file({1, 2, 3, 4, 999'999'999})), "");
    EXPECT_EQ(refusal(file({1, 2, 3, 4, 1'000'000'000})), "1 bookmark: not a part of a second");
    EXPECT_EQ(refusal(file({1, 2, 3, 4})), "1 bookmark: too few or too many parts");
    EXPECT_EQ(refusal(file({1, 2, 3, 4, 5, 6})), "1 bookmark: too few or too many parts");
    EXPECT_EQ(refusal(with("file", [](Writer& writer) { writer.null(); })), "2 bookmark: array expected");
}

TEST(ABookmarksBytes, HaveATypeOfHandlesThatTheKernelCanHave) {
    const auto handle = [](std::int64_t type) {
        return with("handle", [&](Writer& writer) {
            writer.array(2);
            writer.integer(type);
            writer.bytes(Data{1});
        });
    };
    EXPECT_EQ(refusal(handle(std::numeric_limits<int>::min())), "");
    EXPECT_EQ(refusal(handle(std::int64_t{1} << 31)), "1 bookmark: not a type of handles");
}

TEST(ABookmarksBytes, AreOfAVersionThatIsKnown) {
    EXPECT_EQ(refusal(map(1,
                          [](Writer& writer) {
                              writer.text("version");
                              writer.unsignedInteger(2);
                          })),
              "6 bookmark: another version");
    EXPECT_EQ(refusal(map(0, [](Writer&) {})), "1 bookmark: no version");
}

TEST(ABookmarksBytes, HaveNoKeyTwiceAndNothingBehindThem) {
    EXPECT_EQ(refusal(with("path", [](Writer& writer) { writer.bytes(bytesOf("/b")); })),
              "1 bookmark: a key twice");
    Data longer = ofPath("/a");
    longer.push_back(0);
    EXPECT_NE(refusal(longer), "");
}

TEST(ABookmarksBytes, AreRefusedCutShortAtEveryByte) {
    BookmarkContent content;
    content.path = "/a";
    content.file = FileRecord{1, {2, 3, 4, 5}};
    const Data bookmark = *writeBookmark(content, {{"key", "value"}});
    for (std::size_t size = 0; size < bookmark.size(); ++size) {
        EXPECT_NE(refusal(Bytes(bookmark).first(size)), "") << size;
    }
}

TEST(ABookmarksBytes, HoldNoValuesThatAreNotScalars) {
    const auto values = [](const std::function<void(Writer&)>& value) {
        const Data bookmark = with("values", [&](Writer& writer) {
            writer.map(1);
            writer.text("key");
            value(writer);
        });
        EXPECT_EQ(refusal(bookmark), "");
        return __ksw_resourcePropertiesForKeys(bookmark, {"key"});
    };
    EXPECT_EQ(values([](Writer& writer) { writer.boolean(true); }).size(), 1U);
    EXPECT_EQ(values([](Writer& writer) { writer.map(0); }).size(), 0U);
    EXPECT_EQ(values([](Writer& writer) { writer.array(0); }).size(), 0U);
    EXPECT_EQ(refusal(with("values", [](Writer& writer) { writer.array(0); })), "2 bookmark: map expected");
}

TEST(ABookmarksBytes, NestAsDeepAsABudgetAllowsAndNoDeeper) {
    const auto nested = [](std::size_t depth) {
        return with("later", [&](Writer& writer) {
            for (std::size_t level = 0; level < depth; ++level) {
                writer.array(1);
            }
            writer.null();
        });
    };
    EXPECT_EQ(refusal(nested(limits::kDepthMax - 1)), "");
    EXPECT_NE(refusal(nested(limits::kDepthMax)), "");
}

TEST(ABookmarksBytes, CannotSayThatTheirPathIsAnother) {
    const Data bookmark = with("values", [](Writer& writer) {
        writer.map(1);
        writer.text(kResourceKeyPath);
        writer.text("/another");
    });
    EXPECT_EQ(__ksw_resourcePropertyForKey(bookmark, kResourceKeyPath), Value("/a"));
}

}  // namespace
}  // namespace ksw::facts
