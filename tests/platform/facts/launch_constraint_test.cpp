#include "platform/facts/launch_constraint.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/archive/cbor_writer.h"
#include "platform/base/limits.h"

namespace ksw::facts {
namespace {

using archive::Writer;

Data written(const std::function<void(Writer&)>& write) {
    Writer writer;
    write(writer);
    return std::move(writer.take()).value();
}

Data entry(const std::vector<std::pair<std::string, std::string>>& texts) {
    return written([&](Writer& writer) {
        writer.map(texts.size());
        for (const auto& [key, text] : texts) {
            writer.text(key);
            writer.text(text);
        }
    });
}

Result<LaunchConstraint> made(const Data& requirement) {
    return LaunchConstraint::make(requirement, 1, 0);
}

void expectRefused(const Data& requirement, FormatError code, const std::string& why) {
    const auto constraint = made(requirement);
    ASSERT_FALSE(constraint.ok()) << why;
    EXPECT_EQ(constraint.error(), Error(code, "launch constraint: " + why));
}

ConstraintFacts everything() {
    ConstraintFacts facts;
    facts.team = "T";
    facts.anchor = Anchor::Maker;
    facts.identifier = "i";
    facts.entitlements = {"f", "e"};
    facts.organization = "O";
    return facts;
}

TEST(ALaunchConstraint, IsMadeOfTheFactsThatASignerAsksFor) {
    const auto constraint = made(entry({{"identifier", "com.example.tool"}, {"anchor", "trusted"}}));
    ASSERT_TRUE(constraint.ok());
    ConstraintFacts expected;
    expected.identifier = "com.example.tool";
    expected.anchor = Anchor::Trusted;
    EXPECT_EQ(constraint->facts(), expected);
}

TEST(ALaunchConstraint, HasOneFormOutside) {
    const auto requirement = encodedRequirement(everything());
    ASSERT_TRUE(requirement.ok());
    const auto constraint = made(*requirement);
    ASSERT_TRUE(constraint.ok());
    EXPECT_EQ(constraint->facts(), everything());
    using namespace std::string_literals;
    // Pieces, so that no letter is taken for a hexadecimal digit.
    const std::string expected = "\xA3\x67version\x01\x68"s + "category\0\x6B"s + "requirement\xA5"s +
                                 "\x64team\x61T\x66"s + "anchor\x67velmont"s + "\x6Aidentifier\x61i"s + "\x6C"s +
                                 "entitlements\x82\x61"s + "e\x61"s + "f\x6Corganization\x61O"s;
    EXPECT_EQ(constraint->externalRepresentation(), Data(expected.begin(), expected.end()));
}

TEST(ALaunchConstraint, HasTheSameFormForKeysInAnyOrder) {
    const auto one = made(entry({{"team", "T"}, {"organization", "O"}, {"anchor", "velmont"}}));
    const auto other = made(entry({{"anchor", "velmont"}, {"organization", "O"}, {"team", "T"}}));
    ASSERT_TRUE(one.ok() && other.ok());
    EXPECT_EQ(one->externalRepresentation(), other->externalRepresentation());
}

TEST(ALaunchConstraint, ShowsItselfToPeople) {
    EXPECT_EQ(made(*encodedRequirement(everything()))->debugDescription(),
              "LWCR version=1, constraint category=0, requirement={anchor = velmont; entitlements = (e, f); "
              "identifier = i; organization = O; team = T}");
    EXPECT_EQ(made(entry({{"anchor", "trusted"}}))->debugDescription(),
              "LWCR version=1, constraint category=0, requirement={anchor = trusted}");
}

TEST(ALaunchConstraint, IsOfNoOtherVersionOrCategory) {
    const Data requirement = entry({{"team", "T"}});
    EXPECT_EQ(LaunchConstraint::make(requirement, 2, 0).error(),
              Error(FormatError::Unsupported, "launch constraint: version 2 is not known"));
    EXPECT_EQ(LaunchConstraint::make(requirement, 0, 0).error(),
              Error(FormatError::Unsupported, "launch constraint: version 0 is not known"));
    EXPECT_EQ(LaunchConstraint::make(requirement, 1, 1).error(),
              Error(FormatError::Unsupported, "launch constraint: category 1 is not known"));
    EXPECT_EQ(LaunchConstraint::make(requirement, 1, UINT64_MAX).error(),
              Error(FormatError::Unsupported, "launch constraint: category 18446744073709551615 is not known"));
}

TEST(ALaunchConstraint, IsNotMadeOfAnEntryThatItDoesNotUnderstandWhole) {
    expectRefused(entry({}), FormatError::Malformed, "no fact is asked for");
    expectRefused(entry({{"team", "T"}, {"colour", "red"}}), FormatError::Malformed,
                  "an unknown fact is asked for");
    expectRefused(entry({{"anchor", "other"}}), FormatError::Malformed, "an unknown anchor is asked for");
    expectRefused(entry({{"anchor", ""}}), FormatError::Malformed, "an unknown anchor is asked for");
    expectRefused(entry({{"identifier", ""}}), FormatError::Malformed, "a text is empty");
}

TEST(ALaunchConstraint, AsksForAFactOnce) {
    for (const char* key : {"team", "anchor", "identifier", "organization"}) {
        expectRefused(entry({{key, "trusted"}, {key, "trusted"}}), FormatError::Malformed,
                      "a fact is asked for twice");
    }
    const auto twoEntitlements = [](Writer& writer, const char* first, const char* second) {
        writer.text("entitlements");
        writer.array(2);
        writer.text(first);
        writer.text(second);
    };
    expectRefused(written([&](Writer& writer) {
                      writer.map(1);
                      twoEntitlements(writer, "a", "a");
                  }),
                  FormatError::Malformed, "a fact is asked for twice");
    expectRefused(written([&](Writer& writer) {
                      writer.map(2);
                      twoEntitlements(writer, "a", "b");
                      twoEntitlements(writer, "c", "d");
                  }),
                  FormatError::Malformed, "a fact is asked for twice");
}

TEST(ALaunchConstraint, IsNotMadeOfOtherTypes) {
    expectRefused({}, FormatError::Malformed, "cut short");
    expectRefused(written([](Writer& writer) { writer.text("team"); }), FormatError::WrongType, "map expected");
    expectRefused(written([](Writer& writer) {
                      writer.map(1);
                      writer.unsignedInteger(1);
                      writer.text("x");
                  }),
                  FormatError::WrongType, "text expected");
    for (const char* key : {"team", "anchor", "identifier", "organization"}) {
        expectRefused(written([&](Writer& writer) {
                          writer.map(1);
                          writer.text(key);
                          writer.boolean(true);
                      }),
                      FormatError::WrongType, "text expected");
    }
    expectRefused(entry({{"entitlements", "key"}}), FormatError::WrongType, "array expected");
    expectRefused(written([](Writer& writer) {
                      writer.map(1);
                      writer.text("entitlements");
                      writer.array(0);
                  }),
                  FormatError::Malformed, "no fact is asked for");
    expectRefused(written([](Writer& writer) {
                      writer.map(1);
                      writer.text("entitlements");
                      writer.array(1);
                      writer.array(0);
                  }),
                  FormatError::WrongType, "text expected");
}

TEST(ALaunchConstraint, IsNotMadeOfDamagedBytes) {
    const Data whole = *encodedRequirement(everything());
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(made(Data(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size))).ok()) << size;
    }
    Data longer = whole;
    longer.push_back(0);
    expectRefused(longer, FormatError::Malformed, "bytes behind the end");
    expectRefused({0xA1, 0x64, 't', 'e', 'a', 'm', 0x61, 0xFF}, FormatError::Malformed, "text is not UTF-8");
    expectRefused({0xBF, 0x64, 't', 'e', 'a', 'm', 0x61, 'x', 0xFF}, FormatError::Malformed, "indefinite length");
    expectRefused({0xBA, 0xFF, 0xFF, 0xFF, 0xFF}, FormatError::Malformed, "more elements than bytes");
}

TEST(ALaunchConstraint, IsBoundedInLength) {
    const std::string tooLong = "more than 65536 bytes";
    constexpr std::size_t kAround = 47;  // what stands in the outer form before the text of one identifier
    const std::string most(limits::kFieldMax - kAround, 'x');
    const auto constraint = made(entry({{"identifier", most}}));
    ASSERT_TRUE(constraint.ok());
    EXPECT_EQ(constraint->externalRepresentation().size(), limits::kFieldMax);
    expectRefused(entry({{"identifier", most + "x"}}), FormatError::LimitPassed, tooLong);
    expectRefused(Data(limits::kFieldMax + 1, 0xA1), FormatError::LimitPassed, tooLong);
    ConstraintFacts facts;
    facts.identifier = most;
    EXPECT_TRUE(encodedRequirement(facts).ok());
    facts.identifier->push_back('x');
    EXPECT_EQ(encodedRequirement(facts).error(), Error(FormatError::LimitPassed, "launch constraint: " + tooLong));
}

TEST(ALaunchConstraint, HoldsAsManyEntitlementsAsItsLengthAllows) {
    ConstraintFacts facts;
    for (unsigned number = 0; number < 8'000; ++number) {
        facts.entitlements.insert("key" + std::to_string(number));
    }
    const auto requirement = encodedRequirement(facts);
    ASSERT_TRUE(requirement.ok());
    const auto constraint = made(*requirement);
    ASSERT_TRUE(constraint.ok());
    EXPECT_EQ(constraint->facts(), facts);
}

TEST(ARequirementEntry, IsNotWrittenOfNothingOrOfTextsThatNobodyCouldRead) {
    EXPECT_EQ(encodedRequirement({}).error(),
              Error(FormatError::Unsupported, "launch constraint: no fact is asked for"));
    ConstraintFacts facts;
    facts.team = "";
    EXPECT_EQ(encodedRequirement(facts).error(),
              Error(FormatError::Unsupported, "launch constraint: a text is empty"));
    facts.team = "\xFF";
    EXPECT_EQ(encodedRequirement(facts).error(),
              Error(FormatError::Unsupported, "launch constraint: text is not UTF-8"));
    facts.team = "T";
    facts.entitlements = {""};
    EXPECT_EQ(encodedRequirement(facts).error(),
              Error(FormatError::Unsupported, "launch constraint: a text is empty"));
}

}  // namespace
}  // namespace ksw::facts
