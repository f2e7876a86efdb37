#include <optional>

#include "platform/base/limits.h"
#include "tests/platform/plist/allocation_hook.h"
#include "tests/platform/plist/plist_support.h"

namespace ksw::plist {
namespace {

constexpr std::string_view kMarkup =
    "<dict><key>a key that is longer than a string holds by itself</key>"
    "<array><string>text that is longer than a string holds by itself &amp; more</string>"
    "<data>AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8=</data><integer>1</integer><true/><real>1.5</real>"
    "<date>2001-01-01T00:00:00Z</date></array>"
    "<key>\xC3\xA4 text that is not ASCII and longer than a string holds by itself</key><dict/></dict>";

/// Fails each allocation of `work` in turn, until it does without the one that was to fail.
template <class Work>
void expectAnErrorForEachAllocation(Work work) {
    std::size_t failures = 0;
    for (std::size_t nth = 1;; ++nth) {
        bool failed = false;
        std::size_t held = 0;
        std::optional<std::int64_t> code;
        {
            AllocationHook hook(nth);
            {
                const auto result = work();
                if (!result) {
                    code = result.error().code();
                }
            }
            failed = hook.hasFailed();
            held = hook.held();
        }
        ASSERT_EQ(held, 0U) << "after allocation " << nth;
        if (!failed) {
            EXPECT_FALSE(code.has_value());
            break;
        }
        ++failures;
        ASSERT_EQ(code, static_cast<std::int64_t>(FormatError::LimitPassed)) << "at allocation " << nth;
    }
    EXPECT_GT(failures, 5U);
}

TEST(AnAllocationThatFails, IsAnErrorOfTheXmlReader) {
    const std::string text = document(kMarkup);
    expectAnErrorForEachAllocation([&] { return readText(text); });
}

TEST(AnAllocationThatFails, IsAnErrorOfTheBinaryReader) {
    const Data bytes = *writeBinary(valueOf(readMarkup(kMarkup)));
    expectAnErrorForEachAllocation([&] { return readBinary(bytes); });
}

TEST(AnAllocationThatFails, IsAnErrorOfTheWriters) {
    const Value value = valueOf(readMarkup(kMarkup));
    expectAnErrorForEachAllocation([&] { return writeXml(value); });
    expectAnErrorForEachAllocation([&] { return writeBinary(value); });
}

TEST(AnAllocationThatFails, IsNamed) {
    const std::string text = document(kMarkup);
    std::optional<Result<Value>> result;
    {
        AllocationHook hook(1);
        result = readText(text);
    }
    expectRefused(*result, FormatError::LimitPassed, "property list: out of memory");
}

/// Expects that reading takes no more heap than the input's size allows, whether it succeeds or not.
void expectWithinBudget(std::string_view bytes) {
    std::size_t peak = 0;
    {
        AllocationHook hook;
        const auto result = read(bytesOf(bytes));
        peak = hook.peak();
    }
    EXPECT_LE(peak, bytes.size() * limits::kHeapFactor + limits::kHeapBase) << bytes.substr(0, 60);
}

std::string repeated(std::string_view text, std::size_t times) {
    std::string out;
    for (std::size_t count = 0; count < times; ++count) {
        out += text;
    }
    return out;
}

TEST(TheHeapOfAReading, StaysWithinWhatTheInputAllows) {
    constexpr std::size_t kTimes = 60'000;
    for (const char* element :
         {"<true/>", "<array/>", "<dict/>", "<array><true/></array>", "<dict><key/><true/></dict>",
          "<string>sixteen letters.</string>", "<string>&amp;sixteen letters</string>", "<data>AAAA</data>"}) {
        expectWithinBudget(document("<array>" + repeated(element, kTimes) + "</array>"));
    }
    std::string keys;
    for (std::size_t count = 0; count < kTimes / 2; ++count) {
        keys += "<key>" + std::to_string(count) + "</key><true/>";
    }
    expectWithinBudget(document("<dict>" + keys + "</dict>"));
    expectWithinBudget(document("<string>" + std::string(1'000'000, 'a') + "&amp;</string>"));
    expectWithinBudget(document("<string>" + repeated("\r", 1'000'000) + "</string>"));
}

TEST(TheHeapOfAReading, StaysWithinWhatABinaryInputAllows) {
    BinaryList shared;
    shared.referenceSize = 1;
    shared.objects = {"\xAF\x12" + BinaryList::number(60'000, 4) + repeated(raw("\x01"), 60'000), "\x09"};
    expectWithinBudget(shared.bytes());
    BinaryList texts = shared;
    texts.objects[1] = "\x5F\x11\x03\xE8" + std::string(1000, 'a');
    texts.offsetSize = 4;
    expectWithinBudget(texts.bytes());
    BinaryList wide;
    wide.offsetSize = 4;
    wide.objects = {"\x6F\x12" + BinaryList::number(500'000, 4) + repeated("\x4E\x2D", 500'000)};
    expectWithinBudget(wide.bytes());
}

TEST(TheHeapOfAReading, RefusesWhatGrowsWithEachLevel) {
    // Each array holds the next ten times: a few hundred bytes for ten thousand million values.
    BinaryList list;
    for (std::uint8_t level = 1; level <= 10; ++level) {
        list.objects.push_back("\xAA" + std::string(10, static_cast<char>(level)));
    }
    list.objects.push_back("\x5F\x10\x64" + std::string(100, 'a'));
    expectRefused(list.read(), FormatError::LimitPassed, "needs more memory than its size allows");
    expectWithinBudget(list.bytes());
    list.objects.back() = "\xA0";
    expectRefused(list.read(), FormatError::LimitPassed, "needs more memory than its size allows");
}

/// An array of one text and `elements` more, all one shared bool; only the text makes room in the budget.
Result<Value> readShared(std::size_t elements, std::size_t textSize) {
    BinaryList list;
    list.offsetSize = 4;
    list.objects = {"\xAF\x12" + BinaryList::number(elements, 4) + repeated(raw("\x01"), elements), "\x09",
                    "\x5F\x12" + BinaryList::number(textSize, 4) + std::string(textSize, 'a')};
    return list.read();
}

TEST(TheHeapOfAReading, GrowsWithTheInput) {
    EXPECT_TRUE(readShared(60'000, 700'000).ok());
    expectRefused(readShared(60'000, 100'000), FormatError::LimitPassed, "needs more memory than its size allows");
}

}  // namespace
}  // namespace ksw::plist
