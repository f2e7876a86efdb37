#include "platform/facts/attributions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

#include "platform/base/limits.h"
#include "platform/host/log_capture.h"
#include "platform/plist/property_list.h"
#include "tests/support/host_root.h"
#include "tests/support/sys_faults.h"

namespace ksw::facts {
namespace {

using host::LogLevel;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kPublicPath = "usr/share/kestrelwood/Resources/attributions.plist";
constexpr const char* kInternalPath =
    "VelmontInternal/Library/Bundles/KestrelwoodInternal.bundle/Contents/Resources/attributions-internal.plist";
constexpr const char* kSwitchPath = "usr/share/kestrelwood/internal/com.velmont.kestrelwood";

Dictionary entryWith(const Value& name, const Value& applications, const Value& team = "TEAM") {
    Dictionary entry;
    for (const auto& [key, value] : {std::pair("TeamIdentifier", &team), std::pair("Attribution", &name),
                                     std::pair("AssociatedBundleIdentifiers", &applications)}) {
        if (!value->isNull()) {
            entry.emplace(key, *value);
        }
    }
    return entry;
}

class AttributionTablesOfAHost : public testing::Test {
protected:
    void write(const char* path, const Dictionary& table) const {
        const auto bytes = plist::writeXml(table);
        ASSERT_TRUE(bytes.ok());
        root_.folder().writeFile(path, {reinterpret_cast<const char*>(bytes->data()), bytes->size()});
    }
    void publicTable(const Dictionary& table) const { write(kPublicPath, table); }
    void internalTable(const Dictionary& table) const { write(kInternalPath, table); }
    void turnInternalContentOn() const { root_.folder().writeFile(kSwitchPath, ""); }
    void turnInternalContentOff() const { std::filesystem::remove(root_.folder().at(kSwitchPath)); }
    std::vector<std::string> errors() const { return log_.at(LogLevel::Error); }

    test::HostRoot root_;
    host::LogCapture log_;
    AttributionTables tables_;
};

TEST_F(AttributionTablesOfAHost, NameTheDeveloperAndTheApplicationsOfALabelOfATeam) {
    publicTable({{"a.b.c", entryWith("Example", Array{"com.example.A", "com.example.B"})}});
    EXPECT_EQ(*tables_.entry("a.b.c", "TEAM"), entryWith("Example", Array{"com.example.A", "com.example.B"}));
    EXPECT_EQ(tables_.developerName("f", "a.b.c", "TEAM"), "Example");
    EXPECT_THAT(*tables_.associatedBundleIdentifiers("f", "a.b.c", "TEAM"),
                ElementsAre("com.example.A", "com.example.B"));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AttributionTablesOfAHost, SayNothingOfALabelOfAnotherTeam) {
    publicTable({{"a.b.c", entryWith("Example", Array{"com.example.A"})}});
    for (const AttributionTables::Text& team : {AttributionTables::Text("OTHER"), AttributionTables::Text("TEAM "),
                                                AttributionTables::Text(""), AttributionTables::Text()}) {
        EXPECT_EQ(tables_.entry("a.b.c", team), nullptr);
        EXPECT_EQ(tables_.developerName("f", "a.b.c", team), std::nullopt);
        EXPECT_EQ(tables_.associatedBundleIdentifiers("f", "a.b.c", team), std::nullopt);
    }
}

TEST_F(AttributionTablesOfAHost, NeverMatchATeamThatAnEntryLacksOrHoldsAsNoString) {
    publicTable({{"absent", entryWith("Example", {}, {})},
                 {"number", entryWith("Example", {}, 1)},
                 {"empty", entryWith("Example", {}, "")}});
    EXPECT_EQ(tables_.entry("absent", ""), nullptr);
    EXPECT_EQ(tables_.entry("absent", std::nullopt), nullptr);
    EXPECT_EQ(tables_.entry("number", "1"), nullptr);
    EXPECT_EQ(tables_.entry("empty", std::nullopt), nullptr);
    EXPECT_NE(tables_.entry("empty", ""), nullptr);
}

TEST_F(AttributionTablesOfAHost, AnswerNothingSilentlyWithoutALabel) {
    turnInternalContentOn();
    publicTable({{"", entryWith("Example", Array{"x"})}});
    EXPECT_EQ(tables_.entry(std::nullopt, "TEAM"), nullptr);
    EXPECT_EQ(tables_.developerName("f", std::nullopt, "TEAM"), std::nullopt);
    EXPECT_EQ(tables_.associatedBundleIdentifiers("f", std::nullopt, "TEAM"), std::nullopt);
    EXPECT_EQ(tables_.internalName("f", std::nullopt), std::nullopt);
    EXPECT_EQ(tables_.internalAssociatedBundleIdentifiers("f", std::nullopt), std::nullopt);
    EXPECT_FALSE(tables_.containsLabelOrName(std::nullopt));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AttributionTablesOfAHost, SayNothingOfAMissingName) {
    publicTable({{"a.b.c", entryWith({}, {})}});
    EXPECT_EQ(tables_.developerName("f", "a.b.c", "TEAM"), std::nullopt);
    EXPECT_EQ(tables_.developerName("f", "d.e.f", "TEAM"), std::nullopt);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AttributionTablesOfAHost, LogANameOfAnotherClassUnderItsClassesName) {
    const std::vector<std::pair<Value, std::string>> values{
        {true, "Boolean"}, {1, "Number"},     {UINT64_MAX, "Number"}, {1.5, "Number"},
        {Data{1}, "Data"}, {Date{0}, "Date"}, {Array{}, "Array"},     {Dictionary{}, "Dictionary"}};
    Dictionary table;
    for (std::size_t number = 0; number < values.size(); ++number) {
        table.emplace(std::to_string(number), entryWith(values[number].first, {}));
    }
    publicTable(table);
    for (std::size_t number = 0; number < values.size(); ++number) {
        log_.clear();
        EXPECT_EQ(tables_.developerName("AFunction", std::to_string(number), "TEAM"), std::nullopt);
        EXPECT_THAT(errors(), ElementsAre("AFunction: unexpected class " + values[number].second + " for label " +
                                          std::to_string(number)));
        EXPECT_EQ(log_.lines().front().publicForm, errors().front());
        EXPECT_EQ(log_.lines().front().text, "%s: unexpected class %{public}@ for label %{public}@");
    }
}

TEST_F(AttributionTablesOfAHost, LogApplicationsThatAreNoArrayOrMissing) {
    publicTable({{"text", entryWith("Example", "com.example.A")}, {"none", entryWith("Example", {})}});
    for (const char* label : {"text", "none", "unknown"}) {
        EXPECT_EQ(tables_.associatedBundleIdentifiers("AFunction", label, "TEAM"), std::nullopt);
    }
    EXPECT_THAT(errors(), ElementsAre("AFunction: unexpected class String for label text",
                                      "AFunction: unexpected class (null) for label none",
                                      "AFunction: unexpected class (null) for label unknown"));
}

TEST_F(AttributionTablesOfAHost, LogAndDropApplicationsWithANumberAmongThem) {
    publicTable({{"a.b.c", entryWith("Example", Array{"com.example.A", 1, "com.example.B"})},
                 {"empty", entryWith("Example", Array{})}});
    EXPECT_EQ(tables_.associatedBundleIdentifiers("AFunction", "a.b.c", "TEAM"), std::nullopt);
    EXPECT_THAT(errors(), ElementsAre("AFunction: unexpected class Array for label a.b.c"));
    EXPECT_THAT(*tables_.associatedBundleIdentifiers("AFunction", "empty", "TEAM"), IsEmpty());
}

TEST_F(AttributionTablesOfAHost, AreOneWithInternalContent) {
    turnInternalContentOn();
    const Dictionary replaced = entryWith("Internal", Array{"i"}, "INTERNAL");
    publicTable({{"both", entryWith("Public", Array{"p"})}, {"public", entryWith("Public", Array{"p"})}});
    internalTable({{"both", replaced}, {"internal", entryWith("Internal", Array{"i"}, {})}});
    EXPECT_EQ(tables_.merged(), (Dictionary{{"both", replaced},
                                            {"public", entryWith("Public", Array{"p"})},
                                            {"internal", entryWith("Internal", Array{"i"}, {})}}));
    EXPECT_EQ(tables_.internal()->size(), 2U);
    EXPECT_EQ(tables_.developerName("f", "both", "TEAM"), std::nullopt);
    EXPECT_EQ(tables_.developerName("f", "both", "INTERNAL"), "Internal");
    EXPECT_EQ(tables_.developerName("f", "public", "TEAM"), "Public");
}

TEST_F(AttributionTablesOfAHost, LetInternalEntriesWithoutATeamTakePartByLabelOnly) {
    turnInternalContentOn();
    internalTable({{"internal", entryWith("Internal", Array{"i"}, {})}});
    EXPECT_EQ(tables_.developerName("f", "internal", "TEAM"), std::nullopt);
    EXPECT_EQ(tables_.internalName("f", "internal"), "Internal");
    EXPECT_THAT(*tables_.internalAssociatedBundleIdentifiers("f", "internal"), ElementsAre("i"));
    EXPECT_TRUE(tables_.containsLabelOrName("internal"));
    EXPECT_TRUE(tables_.containsLabelOrName("Internal"));
}

TEST_F(AttributionTablesOfAHost, LogInternalValuesOfAnotherClass) {
    turnInternalContentOn();
    internalTable({{"a", entryWith(1, Array{1})}, {"b", entryWith({}, {})}});
    EXPECT_EQ(tables_.internalName("Name", "a"), std::nullopt);
    EXPECT_EQ(tables_.internalName("Name", "b"), std::nullopt);
    EXPECT_EQ(tables_.internalAssociatedBundleIdentifiers("Applications", "a"), std::nullopt);
    EXPECT_EQ(tables_.internalAssociatedBundleIdentifiers("Applications", "b"), std::nullopt);
    EXPECT_THAT(errors(), ElementsAre("Name: unexpected class Number for label a",
                                      "Applications: unexpected class Array for label a",
                                      "Applications: unexpected class (null) for label b"));
}

TEST_F(AttributionTablesOfAHost, HaveNoInternalOneWithoutInternalContentAndReadNoFileForIt) {
    internalTable({{"internal", entryWith("Internal", Array{"i"}, {})}});
    const test::SysFaults calls;
    EXPECT_EQ(tables_.internal(), nullptr);
    EXPECT_EQ(tables_.internalName("f", "internal"), std::nullopt);
    EXPECT_EQ(tables_.internalAssociatedBundleIdentifiers("f", "internal"), std::nullopt);
    EXPECT_THAT(errors(), ElementsAre("f: unexpected class (null) for label internal"));
    EXPECT_THAT(tables_.merged(), IsEmpty());
    EXPECT_EQ(calls.count(host::sys::Call::Read), 0U);
}

TEST_F(AttributionTablesOfAHost, AskForInternalContentOnEachCall) {
    internalTable({{"internal", entryWith("Internal", Array{"i"}, {})}});
    EXPECT_EQ(tables_.internalName("f", "internal"), std::nullopt);
    turnInternalContentOn();
    EXPECT_EQ(tables_.internalName("f", "internal"), "Internal");
    turnInternalContentOff();
    EXPECT_EQ(tables_.internalName("f", "internal"), std::nullopt);
}

TEST_F(AttributionTablesOfAHost, AreReadOnceAndStayAsTheyWere) {
    turnInternalContentOn();
    publicTable({{"public", entryWith("Before", {})}});
    internalTable({{"internal", entryWith("Before", {})}});
    const Dictionary* merged = &tables_.merged();
    const Dictionary* internal = tables_.internal();
    EXPECT_TRUE(tables_.containsLabelOrName("Before"));
    const test::SysFaults calls;
    publicTable({{"public", entryWith("After", {})}});
    internalTable({{"internal", entryWith("After", {})}});
    EXPECT_EQ(&tables_.merged(), merged);
    EXPECT_EQ(tables_.internal(), internal);
    EXPECT_EQ(tables_.developerName("f", "public", "TEAM"), "Before");
    EXPECT_EQ(tables_.internalName("f", "internal"), "Before");
    EXPECT_FALSE(tables_.containsLabelOrName("After"));
    EXPECT_EQ(calls.count(host::sys::Call::Read), 0U);
}

TEST_F(AttributionTablesOfAHost, AreReadOnceByManyThreads) {
    turnInternalContentOn();
    publicTable({{"public", entryWith("Public", Array{"p"})}});
    internalTable({{"internal", entryWith("Internal", Array{"i"})}});
    const test::SysFaults calls;
    AttributionTables others;
    static_cast<void>(others.merged());
    const unsigned readsOfBoth = calls.count(host::sys::Call::Read);
    constexpr std::ptrdiff_t kThreads = 8;
    std::latch start(kThreads);
    std::atomic<int> right = 0;
    std::vector<std::jthread> threads;
    for (std::ptrdiff_t thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, thread] {
            start.arrive_and_wait();
            const bool isPublic = thread % 2 == 0;
            right += isPublic ? tables_.developerName("f", "public", "TEAM") == "Public"
                              : tables_.internalName("f", "internal") == "Internal";
            right += tables_.containsLabelOrName(isPublic ? "internal" : "Public") ? 1 : 0;
        });
    }
    threads.clear();
    EXPECT_EQ(right, 2 * kThreads);
    EXPECT_EQ(calls.count(host::sys::Call::Read), 2 * readsOfBoth);
}

TEST_F(AttributionTablesOfAHost, KnowEveryLabelAndEveryName) {
    publicTable(
        {{"a.b.c", entryWith("Example", {})}, {"d.e.f", entryWith("Other", {})}, {"g.h.i", entryWith(1, {})}});
    for (const char* known : {"a.b.c", "d.e.f", "g.h.i", "Example", "Other"}) {
        EXPECT_TRUE(tables_.containsLabelOrName(known)) << known;
    }
    for (const char* unknown : {"", "a.b", "example", "TEAM", "1", "Attribution"}) {
        EXPECT_FALSE(tables_.containsLabelOrName(unknown)) << unknown;
    }
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AttributionTablesOfAHost, TakeAnEntryThatIsNoDictionaryForNone) {
    turnInternalContentOn();
    publicTable({{"a", "text"}, {"b", Array{"TEAM"}}});
    internalTable({{"c", 1}});
    EXPECT_EQ(tables_.entry("a", "TEAM"), nullptr);
    EXPECT_EQ(tables_.developerName("f", "b", "TEAM"), std::nullopt);
    EXPECT_EQ(tables_.internalName("f", "c"), std::nullopt);
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_TRUE(tables_.containsLabelOrName("a"));
    EXPECT_FALSE(tables_.containsLabelOrName("text"));
}

TEST_F(AttributionTablesOfAHost, AreEmptyAndSilentWithoutFiles) {
    turnInternalContentOn();
    EXPECT_THAT(tables_.merged(), IsEmpty());
    ASSERT_NE(tables_.internal(), nullptr);
    EXPECT_THAT(*tables_.internal(), IsEmpty());
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(AttributionTablesOfAHost, AreEmptyAndLoggedWhenTheyCannotBeRead) {
    turnInternalContentOn();
    root_.folder().writeFile(kPublicPath, "<plist><array/></plist>");
    root_.folder().makeFolder(kInternalPath);
    EXPECT_THAT(tables_.merged(), IsEmpty());
    EXPECT_THAT(*tables_.internal(), IsEmpty());
    const std::vector<std::string> lines = errors();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_TRUE(
        lines[0].starts_with("Table attributions-internal in " + root_.folder().path() +
                             "/VelmontInternal/Library/Bundles/KestrelwoodInternal.bundle/Contents/Resources "
                             "cannot be read: Error Domain=KSWPosixErrorDomain Code=22"))
        << lines[0];
    EXPECT_EQ(lines[1], "Table attributions in " + root_.folder().at("usr/share/kestrelwood/Resources") +
                            " cannot be read: Error Domain=KSWFormatErrorDomain Code=2 \"not a dictionary\"");
}

TEST_F(AttributionTablesOfAHost, KeepThePublicOneWhenTheInternalOneCannotBeRead) {
    turnInternalContentOn();
    publicTable({{"a.b.c", entryWith("Example", {})}});
    root_.folder().writeFile(kInternalPath, "damaged");
    EXPECT_EQ(tables_.merged(), (Dictionary{{"a.b.c", entryWith("Example", {})}}));
}

TEST_F(AttributionTablesOfAHost, AreNotWaitedForWhereAPipeStands) {
    root_.folder().makeFolder("usr/share/kestrelwood/Resources");
    ASSERT_EQ(::mkfifo(root_.folder().at(kPublicPath).c_str(), 0600), 0);
    EXPECT_THAT(tables_.merged(), IsEmpty());
    EXPECT_EQ(errors().size(), 1U);
}

TEST_F(AttributionTablesOfAHost, AreBoundedInSize) {
    const std::string table = "<plist><dict><key>a.b.c</key><dict/></dict></plist>";
    const auto sized = [&](std::size_t size) { return table + std::string(size - table.size(), ' '); };
    root_.folder().writeFile(kPublicPath, sized(limits::kAttributionTableMax));
    EXPECT_EQ(tables_.merged().size(), 1U);
    root_.folder().writeFile(kPublicPath, sized(limits::kAttributionTableMax + 1));
    AttributionTables larger;
    EXPECT_THAT(larger.merged(), IsEmpty());
    EXPECT_EQ(errors().size(), 1U);
}

TEST_F(AttributionTablesOfAHost, HoldThousandsOfLabels) {
    Dictionary table;
    for (unsigned number = 0; number < 5'000; ++number) {
        const std::string text = std::to_string(number);
        table.emplace("com.example." + text, entryWith("Name " + text, Array{"application." + text}));
    }
    publicTable(table);
    EXPECT_EQ(tables_.merged(), table);
    EXPECT_TRUE(tables_.containsLabelOrName("Name 4999"));
}

TEST_F(AttributionTablesOfAHost, AreEmptyWhenTheyAreTooDeepOrHoldTooMuch) {
    std::string deep = "<plist><dict><key>a</key>";
    std::string many = "<plist><dict><key>a</key><array>";
    for (std::size_t level = 0; level < 10'000; ++level) {
        deep += "<array>";
    }
    for (std::size_t count = 0; count < limits::kObjectsMax; ++count) {
        many += "<true/>";
    }
    many += "</array></dict></plist>";
    for (const std::string& hostile : {deep, many}) {
        root_.folder().writeFile(kPublicPath, hostile);
        AttributionTables tables;
        EXPECT_THAT(tables.merged(), IsEmpty());
    }
    EXPECT_EQ(errors().size(), 2U);
}

TEST_F(AttributionTablesOfAHost, AreTheShippedOnesWhenTheseAreInstalled) {
    std::filesystem::create_directories(root_.folder().at("usr/share/kestrelwood/Resources"));
    std::filesystem::copy_file(KSW_SOURCE_DIR "/share/Resources/attributions.plist",
                               root_.folder().at(kPublicPath));
    ASSERT_FALSE(tables_.merged().empty());
    for (const auto& [label, value] : tables_.merged()) {
        const auto* entry = value.as<Dictionary>();
        ASSERT_NE(entry, nullptr) << label;
        const auto* team = find<std::string>(*entry, "TeamIdentifier");
        ASSERT_NE(team, nullptr) << label;
        const auto name = tables_.developerName("f", label, *team);
        ASSERT_TRUE(name.has_value()) << label;
        EXPECT_TRUE(tables_.containsLabelOrName(name)) << label;
        if (entry->contains("AssociatedBundleIdentifiers")) {
            EXPECT_TRUE(tables_.associatedBundleIdentifiers("f", label, *team).has_value()) << label;
        }
    }
    EXPECT_THAT(log_.lines(), IsEmpty());
}

}  // namespace
}  // namespace ksw::facts
