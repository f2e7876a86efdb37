// What a reader of keyed archives refuses, and the place that it names.
#include <algorithm>

#include <gtest/gtest.h>

#include "tests/platform/archive/node.h"

namespace ksw::archive {
namespace {

/// The error of a node with one pair.
template <class WriteValue>
std::string failureOf(std::string_view key, const WriteValue& writeValue, ReadOptions options = {}) {
    return readingFailure(nodeArchive(1,
                                      [&](Writer& writer) {
                                          writer.text(key);
                                          writeValue(writer);
                                      }),
                          options);
}

FormatError codeOf(Bytes bytes) {
    const auto read = readNode(bytes);
    return read ? FormatError{} : static_cast<FormatError>(read.error().code());
}

TEST(AKeyedReader, NamesThePlaceOfAWrongType) {
    const auto number = [](Writer& writer) { writer.unsignedInteger(1); };
    const auto text = [](Writer& writer) { writer.text("t"); };
    EXPECT_EQ(failureOf("name", number), "root.name: text expected");
    EXPECT_EQ(failureOf("count", text), "root.count: integer expected");
    EXPECT_EQ(failureOf("narrow", text), "root.narrow: unsigned integer expected");
    EXPECT_EQ(failureOf("real", number), "root.real: real expected");
    EXPECT_EQ(failureOf("truth", number), "root.truth: bool expected");
    EXPECT_EQ(failureOf("data", text), "root.data: byte string expected");
    EXPECT_EQ(failureOf("uuid", text), "root.uuid: UUID expected");
    EXPECT_EQ(failureOf("url", text), "root.url: URL expected");
    EXPECT_EQ(failureOf("words", text), "root.words: array expected");
    EXPECT_EQ(failureOf("blobs", number), "root.blobs: array expected");
    EXPECT_EQ(failureOf("numbers", text), "root.numbers: map expected");
    EXPECT_EQ(failureOf("parent", text), "root.parent: object expected");
    EXPECT_EQ(failureOf("kids", text), "root.kids: array expected");
}

TEST(AKeyedReader, RefusesNullForAField) {
    EXPECT_EQ(failureOf("name", [](Writer& writer) { writer.null(); }), "root.name: text expected");
}

TEST(AKeyedReader, NamesTheWholeWayToAPlace) {
    auto outer = node("outer");
    outer->kids = std::vector{node("first"), node("second")};
    outer->kids->back()->partner = node("\x01\x02\x03");
    Data bytes = archived(*outer);
    const Data name = fromHex("646e616d65 63010203");  // "name": "\x01\x02\x03"
    const auto place = std::search(bytes.begin(), bytes.end(), name.begin(), name.end());
    ASSERT_NE(place, bytes.end());
    place[5] = 0x43;  // a byte string
    EXPECT_EQ(readingFailure(bytes), "root.kids[1].partner.name: text expected");
}

TEST(AKeyedReader, NamesThePlaceInAListOfRoots) {
    Writer writer;
    writer.map(1);
    writer.text("root");
    writer.array(std::size_t{2});
    beginObject(writer, "Node", 0);
    beginObject(writer, "Leaf", 0);
    const auto read = readNodes(*writer.take());
    ASSERT_FALSE(read.ok());
    EXPECT_EQ(read.error(), Error(FormatError::WrongClass, "root[1]: object of a class that is not allowed here"));
}

TEST(AKeyedReader, RefusesAnIntegerBeyondItsField) {
    EXPECT_EQ(failureOf("narrow", [](Writer& writer) { writer.unsignedInteger(4'294'967'295); }), "read");
    EXPECT_EQ(failureOf("narrow", [](Writer& writer) { writer.unsignedInteger(4'294'967'296); }),
              "root.narrow: integer out of range");
    EXPECT_EQ(failureOf("count", [](Writer& writer) { writer.unsignedInteger(UINT64_MAX / 2); }), "read");
    EXPECT_EQ(failureOf("count", [](Writer& writer) { writer.unsignedInteger(UINT64_MAX / 2 + 1); }),
              "root.count: integer out of range");
}

TEST(AKeyedReader, RefusesAnotherClassAsRoot) {
    Writer writer;
    writer.map(1);
    writer.text("root");
    beginObject(writer, "Leaf", 0);
    const Data bytes = *writer.take();
    EXPECT_EQ(codeOf(bytes), FormatError::WrongClass);
    EXPECT_EQ(readingFailure(bytes), "root: object of a class that is not allowed here");
}

TEST(AKeyedReader, RefusesAnotherClassInAField) {
    EXPECT_EQ(failureOf("leaf", [](Writer& writer) { beginObject(writer, "Node", 0); }),
              "root.leaf: object of a class that is not allowed here");
}

TEST(AKeyedReader, RefusesAClassThatTheCallerDoesNotAllow) {
    constexpr std::string_view kNodeOnly[] = {"Node"};
    constexpr std::string_view kBoth[] = {"Leaf", "Node"};
    const auto leaf = [](Writer& writer) { beginObject(writer, "Leaf", 0); };
    EXPECT_EQ(failureOf("leaf", leaf, {.allowedClasses = kNodeOnly}),
              "root.leaf: object of a class that is not allowed here");
    EXPECT_EQ(failureOf("leaf", leaf, {.allowedClasses = kBoth}), "read");
}

TEST(AKeyedReader, RefusesAKindOfValueThatItsFieldDoesNotAllow) {
    const auto dictionary = [](Value value) {
        return [value = std::move(value)](Writer& writer) { writer.dictionary({{"key", value}}); };
    };
    EXPECT_EQ(failureOf("numbers", dictionary(true)), "read");
    EXPECT_EQ(failureOf("numbers", dictionary("text")), "root.numbers: a value of this kind is not allowed here");
    EXPECT_EQ(failureOf("numbers", dictionary(Dictionary())),
              "root.numbers: a value of this kind is not allowed here");
}

TEST(AKeyedReader, RefusesAKnownKeyTwice) {
    const Data bytes = nodeArchive(2, [](Writer& writer) {
        writer.text("count");
        writer.integer(1);
        writer.text("count");
        writer.integer(1);
    });
    EXPECT_EQ(readingFailure(bytes), "root.count: key occurs twice");
}

TEST(AKeyedReader, RefusesAKeyTwiceThatItsCoderDoesNotKnow) {
    const Data bytes = nodeArchive(2, [](Writer& writer) {
        writer.text("kids");
        writer.array(std::size_t{0});
        writer.text("kids");
        writer.array(std::size_t{0});
    });
    EXPECT_EQ(readingFailure(bytes, {.coder = Coder::ServiceConnection}), "root.kids: key occurs twice");
}

TEST(AKeyedReader, RefusesAnUnknownKeyTwice) {
    const Data bytes = nodeArchive(2, [](Writer& writer) {
        writer.text("other");
        writer.integer(1);
        writer.text("other");
        writer.integer(1);
    });
    EXPECT_EQ(readingFailure(bytes), "root: key occurs twice");
}

TEST(AKeyedReader, TakesTheSameUnknownKeyInTwoObjects) {
    const Data bytes = nodeArchive(2, [](Writer& writer) {
        writer.text("other");
        writer.integer(1);
        writer.text("partner");
        beginObject(writer, "Node", 1);
        writer.text("other");
        writer.integer(1);
    });
    EXPECT_EQ(readingFailure(bytes), "read");
}

TEST(AKeyedReader, RefusesTwoRoots) {
    Writer writer;
    writer.map(2);
    for (int i = 0; i < 2; ++i) {
        writer.text("root");
        beginObject(writer, "Node", 0);
    }
    EXPECT_EQ(readingFailure(*writer.take()), "archive: key occurs twice");
}

TEST(AKeyedReader, RefusesAnArchiveWithoutRoot) {
    EXPECT_EQ(codeOf(fromHex("a0")), FormatError::MissingRoot);
    EXPECT_EQ(readingFailure(fromHex("a0")), "archive: no object under \"root\"");
}

TEST(AKeyedReader, RefusesAnArrayWhereOneObjectIsAsked) {
    EXPECT_EQ(readingFailure(fromHex("a1 64726f6f74 80")), "root: object expected");
}

TEST(AKeyedReader, RefusesBytesBehindTheEnd) {
    Data bytes = archived(*node("n"));
    bytes.push_back(0);
    EXPECT_EQ(readingFailure(bytes), "archive: bytes behind the end");
}

TEST(AKeyedReader, RefusesEveryArchiveThatIsCutShort) {
    auto whole = filledNode();
    whole->kids = std::vector{filledNode()};
    whole->partner = whole->kids->front();
    const Data bytes = archived(*whole);
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_EQ(codeOf(Bytes(bytes.data(), size)), FormatError::Malformed) << size;
    }
}

TEST(AKeyedReader, RefusesIndefiniteLengths) {
    EXPECT_EQ(readingFailure(fromHex("bf 64726f6f74 80 ff")), "archive: indefinite length");
    EXPECT_EQ(failureOf("future", [](Writer& writer) { writer.raw(fromHex("9fff").data(), 2); }),
              "root: indefinite length");
}

TEST(AKeyedReader, RefusesHeadsThatAreNotShortest) {
    EXPECT_EQ(failureOf("count", [](Writer& writer) { writer.raw(fromHex("1805").data(), 2); }),
              "root.count: not in shortest form");
}

TEST(AKeyedReader, RefusesTextThatIsNotUtf8) {
    EXPECT_EQ(failureOf("name", [](Writer& writer) { writer.raw(fromHex("61ff").data(), 2); }),
              "root.name: text is not UTF-8");
}

TEST(AKeyedReader, RefusesAReferenceToNothing) {
    const auto reference = [](std::uint64_t mark) {
        return [mark](Writer& writer) {
            writer.tag(kReferenceTag);
            writer.unsignedInteger(mark);
        };
    };
    EXPECT_EQ(failureOf("partner", reference(1)), "root.partner: reference to nothing");
    EXPECT_EQ(failureOf("leaf", reference(0)), "root.leaf: reference to something of another class");
}

TEST(AKeyedReader, RefusesAReferenceIntoAnUnknownKey) {
    const Data bytes = nodeArchive(2, [](Writer& writer) {
        writer.text("future");
        beginObject(writer, "Node", 0);
        writer.text("partner");
        writer.tag(kReferenceTag);
        writer.unsignedInteger(1);
    });
    EXPECT_EQ(readingFailure(bytes), "root.partner: reference to something of another class");
}

TEST(AKeyedReader, RefusesAMarkWithoutAnObject) {
    EXPECT_EQ(failureOf("partner",
                        [](Writer& writer) {
                            writer.tag(kShareableTag);
                            writer.text("t");
                        }),
              "root.partner: tag expected");
}

TEST(AKeyedReader, RefusesAnObjectThatIsNotAPair) {
    EXPECT_EQ(readingFailure(fromHex("a1 64726f6f74 d81c d81b 81 644e6f6465")),
              "root: object is not a name and a map");
}

TEST(AKeyedReader, HandsOnTheErrorOfAHookWithItsPlace) {
    Node::onFinish = [](Node& one, const FinishContext&) {
        return one.name == "bad" ? Status(Error("Domain", 7, "no good")) : Status();
    };
    auto outer = node("outer");
    outer->kids = std::vector{node("good"), node("bad")};
    const auto read = readNode(archived(*outer));
    Node::onFinish = nullptr;
    ASSERT_FALSE(read.ok());
    EXPECT_EQ(read.error(), Error("Domain", 7, "root.kids[1]: no good"));
}

}  // namespace
}  // namespace ksw::archive
