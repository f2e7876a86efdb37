// Objects to bytes and back: fields, coders, order, equal bytes.
#include <gtest/gtest.h>

#include "tests/platform/archive/node.h"

namespace ksw::archive {
namespace {

TEST(AKeyedArchive, IsAMapWithATaggedObjectUnderRoot) {
    auto small = node("n");
    small->count = 3;
    // {"root": 28(27(["Node", {"name": "n", "count": 3}]))}
    EXPECT_EQ(toHex(archived(*small)),
              "a1"
              "64726f6f74"
              "d81c"
              "d81b"
              "82"
              "644e6f6465"
              "a2"
              "646e616d65"
              "616e"
              "65636f756e74"
              "03");
}

TEST(AKeyedArchive, CarriesEveryKindOfField) {
    const auto filled = filledNode();
    const auto read = readNode(archived(*filled));
    ASSERT_TRUE(read.ok()) << read.error().description();
    const Node& back = *read->root;
    EXPECT_EQ(back.name, filled->name);
    EXPECT_EQ(back.count, filled->count);
    EXPECT_EQ(back.narrow, filled->narrow);
    EXPECT_EQ(back.real, filled->real);
    EXPECT_EQ(back.truth, filled->truth);
    EXPECT_EQ(back.data, filled->data);
    EXPECT_EQ(back.uuid, filled->uuid);
    EXPECT_EQ(back.url, filled->url);
    EXPECT_EQ(back.words, filled->words);
    EXPECT_EQ(back.blobs, filled->blobs);
    EXPECT_EQ(back.numbers, filled->numbers);
    EXPECT_EQ(back.any, filled->any);
    EXPECT_EQ(back.leaf->colour, "green");
    EXPECT_TRUE(back.isFinished);
}

TEST(AKeyedArchive, LeavesAbsentFieldsAbsent) {
    const auto read = readNode(archived(*std::make_shared<Node>()));
    ASSERT_TRUE(read.ok()) << read.error().description();
    EXPECT_FALSE(read->root->name || read->root->narrow || read->root->url || read->root->words ||
                 read->root->kids);
    EXPECT_TRUE(read->root->any.isNull());
    EXPECT_EQ(read->root->partner, nullptr);
}

TEST(AKeyedArchive, TellsAnEmptyListFromNone) {
    auto parent = node("parent");
    parent->kids.emplace();
    const auto read = readNode(archived(*parent));
    ASSERT_TRUE(read.ok()) << read.error().description();
    ASSERT_TRUE(read->root->kids.has_value());
    EXPECT_TRUE(read->root->kids->empty());
}

TEST(AKeyedArchive, OfEqualObjectsHasEqualBytes) {
    EXPECT_EQ(archived(*filledNode()), archived(*filledNode()));
}

TEST(AKeyedArchive, ReadAndWrittenAgainIsTheSame) {
    auto parent = filledNode();
    parent->kids = std::vector{filledNode(), node("kid")};
    parent->kids->front()->parent = parent;
    parent->partner = parent->kids->back();
    const Data bytes = archived(*parent);
    const auto read = readNode(bytes, {.cycles = Cycles::Allowed});
    ASSERT_TRUE(read.ok()) << read.error().description();
    EXPECT_EQ(archived(*read->root), bytes);
}

TEST(AKeyedArchive, WritesAnObjectMetAgainAsAReference) {
    auto shared = node("shared");
    auto pair = node("pair");
    pair->kids = std::vector{shared, shared};
    const auto read = readNode(archived(*pair));
    ASSERT_TRUE(read.ok()) << read.error().description();
    ASSERT_EQ(read->root->kids->size(), 2U);
    EXPECT_EQ(read->root->kids->front(), read->root->kids->back());
    EXPECT_EQ(read->root->kids->front()->name, "shared");
}

TEST(AKeyedArchive, KeepsTheOrderOfAList) {
    auto parent = node("parent");
    parent->kids = std::vector{node("c"), node("a"), node("b")};
    const auto read = readNode(archived(*parent));
    ASSERT_TRUE(read.ok()) << read.error().description();
    EXPECT_EQ((*read->root->kids)[0]->name, "c");
    EXPECT_EQ((*read->root->kids)[1]->name, "a");
    EXPECT_EQ((*read->root->kids)[2]->name, "b");
}

TEST(AKeyedArchive, OfAListGivesTheListBack) {
    const std::vector nodes{node("first"), node("second"), node("first")};
    const auto bytes = archiveArray<Node>(nodes, Coder::Ordinary);
    ASSERT_TRUE(bytes.ok());
    const auto read = readNodes(*bytes);
    ASSERT_TRUE(read.ok()) << read.error().description();
    ASSERT_EQ(read->roots.size(), 3U);
    EXPECT_EQ(read->roots[0]->name, "first");
    EXPECT_EQ(read->roots[1]->name, "second");
    EXPECT_NE(read->roots[0], read->roots[2]);
}

TEST(AKeyedArchive, OfAnEmptyListIsAnEmptyList) {
    const auto bytes = archiveArray<Node>({}, Coder::Ordinary);
    ASSERT_TRUE(bytes.ok());
    EXPECT_EQ(toHex(*bytes), "a164726f6f7480");
    const auto read = readNodes(*bytes);
    ASSERT_TRUE(read.ok()) << read.error().description();
    EXPECT_TRUE(read->roots.empty());
}

TEST(AListOfObjects, MayNameOneTwice) {
    const auto one = node("one");
    const auto bytes = archiveArray<Node>(std::vector{one, one}, Coder::Ordinary);
    const auto read = readNodes(*bytes);
    ASSERT_TRUE(read.ok()) << read.error().description();
    EXPECT_EQ(read->roots[0], read->roots[1]);
}

TEST(TheServiceCoder, DoesNotWriteFieldsOfTheOrdinaryOne) {
    auto parent = node("parent");
    parent->kids = std::vector{node("kid")};
    const auto read = readNode(archived(*parent, Coder::ServiceConnection));
    ASSERT_TRUE(read.ok()) << read.error().description();
    EXPECT_FALSE(read->root->kids.has_value());
}

TEST(TheServiceCoder, PassesOverFieldsOfTheOrdinaryOne) {
    auto parent = node("parent");
    parent->kids = std::vector{node("kid")};
    parent->leaf = std::make_shared<Leaf>(Leaf{"red"});
    const auto read = readNode(archived(*parent), {.coder = Coder::ServiceConnection});
    ASSERT_TRUE(read.ok()) << read.error().description();
    EXPECT_FALSE(read->root->kids.has_value());
    EXPECT_EQ(read->root->leaf->colour, "red");
}

TEST(AKeyedReader, TakesKeysInAnyOrder) {
    const Data bytes = nodeArchive(3, [](Writer& writer) {
        writer.text("truth");
        writer.boolean(true);
        writer.text("name");
        writer.text("late");
        writer.text("count");
        writer.integer(5);
    });
    const auto read = readNode(bytes);
    ASSERT_TRUE(read.ok()) << read.error().description();
    EXPECT_EQ(read->root->name, "late");
    EXPECT_EQ(read->root->count, 5);
    EXPECT_EQ(read->root->truth, true);
}

TEST(AKeyedReader, PassesOverUnknownKeys) {
    const Data bytes = nodeArchive(3, [](Writer& writer) {
        writer.text("future");
        writer.value(Dictionary{{"deep", Array{1, Array{2.5, Value(), Data{1}}, Error("D", 1, "text")}}});
        writer.text("count");
        writer.integer(5);
        writer.text("more");
        writer.null();
    });
    const auto read = readNode(bytes);
    ASSERT_TRUE(read.ok()) << read.error().description();
    EXPECT_EQ(read->root->count, 5);
}

TEST(AKeyedReader, CountsTheMarksInUnknownKeys) {
    const Data bytes = nodeArchive(3, [](Writer& writer) {
        writer.text("future");
        writer.array(std::size_t{2});
        beginObject(writer, "Other", 0);  // mark 1
        writer.tag(kShareableTag);        // mark 2
        writer.text("text");
        writer.text("partner");
        beginObject(writer, "Node", 0);  // mark 3
        writer.text("kids");
        writer.array(std::size_t{1});
        writer.tag(kReferenceTag);
        writer.unsignedInteger(3);
    });
    const auto read = readNode(bytes);
    ASSERT_TRUE(read.ok()) << read.error().description();
    EXPECT_EQ(read->root->kids->front(), read->root->partner);
}

TEST(AKeyedReader, TakesObjectsWithoutAMark) {
    Writer writer;
    writer.map(1);
    writer.text("root");
    writer.tag(kObjectTag);
    writer.array(std::size_t{2});
    writer.text("Node");
    writer.map(0);
    EXPECT_EQ(readingFailure(*writer.take()), "read");
}

TEST(AKeyedReader, PassesOverOtherRoots) {
    Writer writer;
    writer.map(2);
    writer.text("version");
    writer.unsignedInteger(2);
    writer.text("root");
    beginObject(writer, "Node", 0);
    EXPECT_EQ(readingFailure(*writer.take()), "read");
}

TEST(AKeyedWriter, RefusesTextThatIsNotUtf8) {
    const auto bytes = archive(*node("\xFF"), Coder::Ordinary);
    ASSERT_FALSE(bytes.ok());
    EXPECT_EQ(bytes.error(), Error(FormatError::Unsupported, "text is not UTF-8"));
}

}  // namespace
}  // namespace ksw::archive
