#include "platform/host/languages.h"

#include <gtest/gtest.h>

#include "tests/support/environment.h"

namespace ksw::host {
namespace {

using Names = std::vector<std::string>;

class TheUsersLanguages : public testing::Test {
protected:
    test::ScopedVariable list_{"LANGUAGE", std::nullopt};
    test::ScopedVariable all_{"LC_ALL", std::nullopt};
    test::ScopedVariable messages_{"LC_MESSAGES", std::nullopt};
    test::ScopedVariable lang_{"LANG", std::nullopt};
};

TEST_F(TheUsersLanguages, AreNoneWithoutAnEnvironment) {
    EXPECT_EQ(userLanguages(), Names{});
}

TEST_F(TheUsersLanguages, AreTakenFromTheFirstVariableThatIsSet) {
    const test::ScopedVariable lang("LANG", "it");
    EXPECT_EQ(userLanguages(), Names{"it"});
    const test::ScopedVariable messages("LC_MESSAGES", "fr");
    EXPECT_EQ(userLanguages(), Names{"fr"});
    const test::ScopedVariable all("LC_ALL", "en");
    EXPECT_EQ(userLanguages(), Names{"en"});
    const test::ScopedVariable list("LANGUAGE", "de");
    EXPECT_EQ(userLanguages(), Names{"de"});
    const test::ScopedVariable empty("LANGUAGE", "");
    EXPECT_EQ(userLanguages(), Names{"en"});
}

TEST_F(TheUsersLanguages, AreFollowedByTheirPlainForms) {
    const test::ScopedVariable lang("LANG", "de_AT.UTF-8@euro");
    EXPECT_EQ(userLanguages(), (Names{"de_AT", "de"}));
}

TEST_F(TheUsersLanguages, MayBeAList) {
    const test::ScopedVariable list("LANGUAGE", "de_AT:de:fr.UTF-8::en_GB");
    EXPECT_EQ(userLanguages(), (Names{"de_AT", "de", "fr", "en_GB", "en"}));
}

TEST_F(TheUsersLanguages, AreNamesOfLanguagesOnly) {
    const test::ScopedVariable list("LANGUAGE",
                                    "C:POSIX:../../etc:/:.:d e:_:x:" + std::string(33, 'a') + ":\xFF:en");
    EXPECT_EQ(userLanguages(), Names{"en"});
}

TEST_F(TheUsersLanguages, AreSixteenAtMost) {
    std::string list;
    for (char first = 'a'; first < 'a' + 17; ++first) {
        list += std::string{first, 'x', ':'};
    }
    const test::ScopedVariable variable("LANGUAGE", list);
    EXPECT_EQ(userLanguages().size(), 16U);
    EXPECT_EQ(userLanguages().back(), "px");
}

}  // namespace
}  // namespace ksw::host
