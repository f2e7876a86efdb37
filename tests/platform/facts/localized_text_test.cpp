#include "platform/facts/localized_text.h"

#include <gtest/gtest.h>

#include <filesystem>

#include <kestrelwood/KSWFunctions.h>

#include "platform/base/limits.h"
#include "tests/support/environment.h"
#include "tests/support/host_root.h"

namespace ksw::facts {
namespace {

class ATextOfTheFramework : public testing::Test {
protected:
    std::string textIn(const std::string& languages, std::string_view key = "Greeting") {
        const test::ScopedVariable language("LANGUAGE", languages);
        return localizedText(key, "Texts");
    }
    void write(const std::string& language, const std::string& text) {
        root_.folder().writeFile(place(language), "<plist><dict><key>Greeting</key>" + text + "</dict></plist>");
    }
    static std::string place(const std::string& language) {
        return "usr/share/kestrelwood/Resources/" + language + "/Texts.plist";
    }

    test::HostRoot root_;
};

TEST_F(ATextOfTheFramework, IsInTheFirstOfTheUsersLanguagesThatHasIt) {
    write("en", "<string>Hello</string>");
    write("de", "<string>Hallo</string>");
    write("de_AT", "<string>Servus</string>");
    EXPECT_EQ(textIn("de"), "Hallo");
    EXPECT_EQ(textIn("de_CH.UTF-8"), "Hallo");
    EXPECT_EQ(textIn("de_AT.UTF-8"), "Servus");
    EXPECT_EQ(textIn("eo:de:en"), "Hallo");
    EXPECT_EQ(textIn("en:de"), "Hello");
}

TEST_F(ATextOfTheFramework, IsInEnglishForWhoeverReadsNothingElseThatThereIs) {
    write("en", "<string>Hello</string>");
    for (const char* languages : {"eo", "C", "POSIX", "../../x", ":::"}) {
        EXPECT_EQ(textIn(languages), "Hello") << languages;
    }
}

TEST_F(ATextOfTheFramework, IsTheKeyWhereNoTableHasOne) {
    EXPECT_EQ(textIn("de"), "Greeting");
    write("de", "<string></string>");
    write("en", "<true/>");
    EXPECT_EQ(textIn("de"), "Greeting");
    EXPECT_EQ(textIn("de", "Farewell"), "Farewell");
}

TEST_F(ATextOfTheFramework, PassesOverTablesThatCannotBeRead) {
    write("en", "<string>Hello</string>");
    root_.folder().writeFile(place("de"), "<plist><dict>");
    EXPECT_EQ(textIn("de"), "Hello");
    const std::string table = "<plist><dict><key>Greeting</key><string>Hallo</string></dict></plist>";
    root_.folder().writeFile(place("de"), table + std::string(limits::kPropertyListFileMax - table.size(), ' '));
    EXPECT_EQ(textIn("de"), "Hallo");
    root_.folder().writeFile(place("de"),
                             table + std::string(limits::kPropertyListFileMax + 1 - table.size(), ' '));
    EXPECT_EQ(textIn("de"), "Hello");
}

/// The table of texts that is shipped in a language.
Dictionary shipped(const std::string& language) {
    const std::string path = KSW_SOURCE_DIR "/share/Resources/" + language + "/Localizable.plist";
    std::optional<Dictionary> table = readPropertyListFile(URL::fileURL(path));
    EXPECT_TRUE(table) << path;
    return table.value_or(Dictionary());
}

TEST(TheShippedTexts, AreTheSameInEveryLanguage) {
    const Dictionary english = shipped("en");
    ASSERT_FALSE(english.empty());
    std::size_t languages = 0;
    for (const auto& entry : std::filesystem::directory_iterator(KSW_SOURCE_DIR "/share/Resources")) {
        if (!entry.is_directory()) {
            continue;
        }
        ++languages;
        const Dictionary table = shipped(entry.path().filename());
        EXPECT_EQ(table.size(), english.size()) << entry.path();
        for (const auto& [key, text] : english) {
            const auto* translated = find<std::string>(table, key);
            EXPECT_TRUE(translated != nullptr && !translated->empty()) << entry.path() << " " << key;
        }
    }
    EXPECT_GE(languages, 2U);
}

TEST(TheShippedTexts, AreTheirOwnKeysInEnglishUnlessTheyHaveNames) {
    for (const auto& [key, text] : shipped("en")) {
        EXPECT_EQ(text == Value(key), !key.starts_with("KSW_")) << key;
    }
}

TEST(TheShippedTexts, NameTheUnknownDeveloper) {
    EXPECT_EQ(*find<std::string>(shipped("de"), "Unknown Developer"), "Unbekannter Entwickler");
}

}  // namespace
}  // namespace ksw::facts
