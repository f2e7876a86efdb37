// Without memory reading and writing end in an error: nothing throws, nothing leaks.
#include <gtest/gtest.h>

#include "tests/platform/archive/node.h"
#include "tests/support/failing_allocation.h"

namespace ksw::archive {
namespace {

/// A graph with fields of every kind, a list, a parent, and owners in a circle.
std::shared_ptr<Node> everything() {
    auto top = filledNode();
    top->url = URL::fromString("a/b", *URL::fromString("file:///a/long/enough/base/"));
    top->any = Dictionary{{"cause", Error("Domain", 1, Dictionary{{"key", Array{1, "a text of more than 15"}}})}};
    top->kids = std::vector{filledNode(), node("a name of more than 15")};
    top->kids->front()->parent = top;
    top->kids->back()->partner = top;
    return top;
}

TEST(AReaderWithoutMemory, AnswersAnErrorAtEveryAllocation) {
    auto top = everything();
    const Data bytes = archived(*top);
    top->kids->back()->partner.reset();
    top.reset();
    ASSERT_EQ(Node::living, 0);
    bool isDone = false;
    for (std::size_t number = 0; !isDone; ++number) {
        {
            DecodeBudget budget(bytes.size());
            const test::FailingAllocation failing(number);
            const auto read = unarchive<Node>(bytes, {.cycles = Cycles::Allowed}, budget);
            isDone = !failing.hasHappened();
            ASSERT_EQ(read.ok(), isDone) << number;
            if (!read.ok()) {
                EXPECT_EQ(read.error().code(), static_cast<std::int64_t>(FormatError::LimitPassed));
            }
        }
        ASSERT_EQ(Node::living, 0) << number;
    }
}

TEST(AReaderOfAListWithoutMemory, AnswersAnErrorAtEveryAllocation) {
    const auto bytes = archiveArray<Node>(std::vector{filledNode(), filledNode()}, Coder::Ordinary);
    ASSERT_TRUE(bytes.ok());
    bool isDone = false;
    for (std::size_t number = 0; !isDone; ++number) {
        DecodeBudget budget(bytes->size());
        const test::FailingAllocation failing(number);
        const auto read = unarchiveArray<Node>(*bytes, {}, budget);
        isDone = !failing.hasHappened();
        ASSERT_EQ(read.ok(), isDone) << number;
    }
}

TEST(AWriterWithoutMemory, AnswersAnErrorAtEveryAllocation) {
    auto top = everything();
    const Data whole = archived(*top);
    bool isDone = false;
    for (std::size_t number = 0; !isDone; ++number) {
        const test::FailingAllocation failing(number);
        const auto bytes = archive(*top, Coder::Ordinary);
        isDone = !failing.hasHappened();
        ASSERT_EQ(bytes.ok(), isDone) << number;
    }
    top->kids->back()->partner.reset();
}

}  // namespace
}  // namespace ksw::archive
