// The bounds of a decoding: the last value passes, the next is refused with its own error.
#include <gtest/gtest.h>

#include "tests/platform/archive/node.h"

namespace ksw::archive {
namespace {

std::string textFailure(std::size_t size) {
    return readingFailure(nodeArchive(1, [size](Writer& writer) {
        writer.text("name");
        writer.text(std::string(size, 'x'));
    }));
}

TEST(ALimit, OfAText) {
    EXPECT_EQ(textFailure(limits::kFieldMax), "read");
    EXPECT_EQ(textFailure(limits::kFieldMax + 1), "root.name: text too long");
}

TEST(ALimit, OfAByteString) {
    const auto failure = [](std::size_t size) {
        return readingFailure(nodeArchive(1, [size](Writer& writer) {
            writer.text("data");
            writer.bytes(Data(size));
        }));
    };
    EXPECT_EQ(failure(limits::kFieldMax), "read");
    EXPECT_EQ(failure(limits::kFieldMax + 1), "root.data: byte string too long");
}

TEST(ALimit, OfAllTextsInAField) {
    const auto failure = [](std::size_t size) {
        return readingFailure(nodeArchive(1, [size](Writer& writer) {
            writer.text("words");
            writer.array(std::size_t{2});
            writer.text("ab");
            writer.text(std::string(size - 2, 'x'));
        }));
    };
    EXPECT_EQ(failure(limits::kFieldMax), "read");
    EXPECT_EQ(failure(limits::kFieldMax + 1), "root.words: text too long");
}

TEST(ALimit, OfADictionary) {
    const auto failure = [](std::size_t entries, std::size_t last) {
        return readingFailure(nodeArchive(1, [=](Writer& writer) {
            writer.text("numbers");
            writer.map(entries + 1);
            for (std::size_t i = 0; i < entries; ++i) {
                writer.text("key " + std::to_string(1000 + i));  // 9 bytes with its head
                writer.boolean(true);
            }
            writer.text(std::string(last, 'x'));
            writer.boolean(true);
        }));
    };
    // Head of the map 3, an entry 10, the last 3 for its head and 1 for its value.
    constexpr std::size_t kEntries = 6000;
    constexpr std::size_t kLast = limits::kFieldMax - 3 - 10 * kEntries - 4;
    EXPECT_EQ(failure(kEntries, kLast), "read");
    EXPECT_EQ(failure(kEntries, kLast + 1), "root.numbers: field too long");
}

TEST(ALimit, OfUnknownKeys) {
    const auto failure = [](std::size_t count) {
        return readingFailure(nodeArchive(count, [count](Writer& writer) {
            for (std::size_t i = 0; i < count; ++i) {
                writer.text("key " + std::to_string(i));
                writer.null();
            }
        }));
    };
    EXPECT_EQ(failure(limits::kUnknownKeysMax), "read");
    EXPECT_EQ(failure(limits::kUnknownKeysMax + 1), "root: too many unknown keys");
}

/// Arrays in each other under an unknown key or a known one.
std::string nestingFailure(std::string_view key, std::size_t depth) {
    return readingFailure(nodeArchive(1, [=](Writer& writer) {
        writer.text(key);
        for (std::size_t i = 0; i < depth; ++i) {
            writer.array(i + 1 == depth ? 0U : 1U);
        }
    }));
}

TEST(ALimit, OfNesting) {
    constexpr std::size_t kAround = 3;  // the archive's map, the object's array and map
    EXPECT_EQ(nestingFailure("any", limits::kDepthMax - kAround), "read");
    EXPECT_EQ(nestingFailure("any", limits::kDepthMax - kAround + 1), "root.any: nested too deeply");
    EXPECT_EQ(nestingFailure("future", limits::kDepthMax - kAround), "read");
    EXPECT_EQ(nestingFailure("future", limits::kDepthMax - kAround + 1), "root: nested too deeply");
}

TEST(ALimit, OfObjectsInEachOther) {
    const auto chain = [](std::size_t count) {
        auto top = node("n");
        for (std::size_t i = 1; i < count; ++i) {
            auto next = node("n");
            next->partner = std::move(top);
            top = std::move(next);
        }
        return top;
    };
    constexpr std::size_t kObjects = (limits::kDepthMax - 1) / 2;
    EXPECT_EQ(readingFailure(archived(*chain(kObjects))), "read");
    const auto bytes = archive(*chain(kObjects + 1), Coder::Ordinary);
    ASSERT_FALSE(bytes.ok());
    EXPECT_EQ(bytes.error(), Error(FormatError::LimitPassed, "nested too deeply"));
}

TEST(ALimit, OfObjects) {
    const auto failure = [](std::size_t count) {
        Writer writer;
        writer.map(1);
        writer.text("root");
        writer.array(count);
        for (std::size_t i = 0; i < count; ++i) {
            beginObject(writer, "Node", 1);
            writer.text("data");
            writer.bytes(Data(100));  // pays for the object's heap
        }
        const auto read = readNodes(*writer.take());
        return read ? std::string("read") : std::string(read.error().localizedDescription());
    };
    EXPECT_EQ(failure(limits::kObjectsMax), "read");
    EXPECT_EQ(failure(limits::kObjectsMax + 1), "root[65536]: too many objects");
}

TEST(ALimit, OfSharedReferences) {
    const auto failure = [](std::size_t count) {
        return readingFailure(nodeArchive(2, [count](Writer& writer) {
            writer.text("partner");
            beginObject(writer, "Node", 0);
            writer.text("kids");
            writer.array(count);
            for (std::size_t i = 0; i < count; ++i) {
                writer.tag(kReferenceTag);
                writer.unsignedInteger(1);
            }
        }));
    };
    constexpr std::size_t kMarks = 2;
    EXPECT_EQ(failure(limits::kSharedReferencesMax - kMarks), "read");
    EXPECT_EQ(failure(limits::kSharedReferencesMax - kMarks + 1), "root.kids[262142]: too many shared references");
}

TEST(ALimit, OfHeap) {
    // Empty texts: each takes a byte of the input and a whole string of the heap.
    const auto failure = [](std::size_t count) {
        return readingFailure(nodeArchive(1, [count](Writer& writer) {
            writer.text("words");
            writer.array(count);
            for (std::size_t i = 0; i < count; ++i) {
                writer.text("");
            }
        }));
    };
    constexpr std::size_t kBalance = limits::kHeapBase / (sizeof(std::string) - limits::kHeapFactor);
    EXPECT_EQ(failure(kBalance - 100), "read");
    EXPECT_EQ(failure(kBalance + 100), "root.words: more memory than the input may take");
}

TEST(ABudget, CountsHeapToTheLastByte) {
    DecodeBudget budget(10);
    EXPECT_FALSE(budget.takeHeap(10 * limits::kHeapFactor + limits::kHeapBase + 1));
    EXPECT_TRUE(budget.takeHeap(10 * limits::kHeapFactor + limits::kHeapBase));
    EXPECT_FALSE(budget.takeHeap(1));
}

TEST(ABudget, OfAHugeInputDoesNotOverflow) {
    EXPECT_EQ(DecodeBudget(SIZE_MAX).heapLeft(), SIZE_MAX);
}

TEST(ABudget, IsSharedWithArchivesInTheArchive) {
    const Data inner = archived(*node("inner"));
    const Data outer = archived(*node("outer"));
    DecodeBudget budget(outer.size());
    std::size_t depth = 0;
    Node::onFinish = [&](Node& one, const FinishContext& context) {
        if (one.name == "outer") {
            depth = context.budget.depth();
            const std::size_t before = context.budget.heapLeft();
            EXPECT_TRUE(unarchive<Node>(inner, {}, context.budget).ok());
            EXPECT_LT(context.budget.heapLeft(), before);
            EXPECT_EQ(context.budget.depth(), depth);
        }
        return Status();
    };
    EXPECT_TRUE(unarchive<Node>(outer, {}, budget).ok());
    Node::onFinish = nullptr;
    EXPECT_EQ(depth, 3U);
    EXPECT_EQ(budget.depth(), 0U);
}

TEST(ABudget, IsAsDeepAsBeforeWhenADecodingHasFailed) {
    DecodeBudget budget(100);
    ASSERT_TRUE(budget.enter());
    EXPECT_FALSE(unarchive<Node>(fromHex("a1 64726f6f74 d81c d81b 82 644e6f6465 a1"), {}, budget).ok());
    EXPECT_EQ(budget.depth(), 1U);
}

TEST(ADeclaredCount, IsNeverMoreThanTheBytesThatRemain) {
    EXPECT_EQ(readingFailure(fromHex("a1 64726f6f74 d81c d81b 82 644e6f6465 a1 65776f726473 9bffffffffffffffff")),
              "root.words: more elements than bytes");
    EXPECT_EQ(readingFailure(fromHex("bb7fffffffffffffff")), "archive: more elements than bytes");
}

TEST(AKeyedWriter, RefusesAFieldThatNoReaderTakes) {
    auto large = node(std::string(limits::kFieldMax, 'x'));
    EXPECT_TRUE(archive(*large, Coder::Ordinary).ok());
    large->name->push_back('x');
    const auto bytes = archive(*large, Coder::Ordinary);
    ASSERT_FALSE(bytes.ok());
    EXPECT_EQ(bytes.error(), Error(FormatError::LimitPassed, "field too long"));
}

}  // namespace
}  // namespace ksw::archive
