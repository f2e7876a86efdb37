#include "platform/facts/resource_values.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>

#include <sys/stat.h>

#include "platform/base/limits.h"
#include "platform/host/languages.h"
#include "platform/host/sys.h"
#include "platform/plist/property_list.h"
#include "tests/support/environment.h"
#include "tests/support/in_child.h"
#include "tests/support/sys_faults.h"
#include "tests/support/temp_folder.h"

namespace ksw::facts {
namespace {

class AResource : public testing::Test {
protected:
    void writeList(const std::string& name, const Dictionary& list) const {
        const Data bytes = *plist::writeXml(list);
        folder_.writeFile(name, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    }

    Value localizedName(std::string_view name) const {
        return resourceValue(folder_.at(name), kResourceKeyLocalizedName).value_or(Value());
    }

    test::TempFolder folder_;
    test::ScopedVariable language_{"LANGUAGE", "de_AT:fr"};
};

TEST_F(AResource, HasNamesAndPaths) {
    folder_.writeFile("real/a b%.txt", "");
    std::filesystem::create_directory_symlink("real", folder_.at("link"));
    const std::string path = folder_.at("link/a b%.txt");
    EXPECT_EQ(resourceValue(path, kResourceKeyName), Value("a b%.txt"));
    EXPECT_EQ(resourceValue(path, kResourceKeyLocalizedName), Value("a b%.txt"));
    EXPECT_EQ(resourceValue(path, kResourceKeyPath), Value(path));
    EXPECT_EQ(resourceValue(path, kResourceKeyCanonicalPath), Value(folder_.at("real/a b%.txt")));
    EXPECT_EQ(resourceValue("/", kResourceKeyName), Value("/"));
}

TEST_F(AResource, IsOfAKind) {
    const std::array<std::string_view, 5> kinds{kResourceKeyIsDirectory, kResourceKeyIsRegularFile,
                                                kResourceKeyIsPackage, kResourceKeyIsApplication,
                                                kResourceKeyIsVolume};
    const auto kindsOf = [&](const std::string& path) {
        std::vector<bool> flags;
        for (const std::string_view key : kinds) {
            flags.push_back(isResource(path, key));
        }
        return flags;
    };
    EXPECT_EQ(kindsOf(folder_.writeFile("a", "")), (std::vector{false, true, false, false, false}));
    EXPECT_EQ(kindsOf(folder_.path()), (std::vector{true, false, false, false, false}));
    EXPECT_EQ(kindsOf(folder_.makeFolder("W.app")), (std::vector{true, false, true, true, false}));
    EXPECT_EQ(kindsOf(folder_.makeFolder("W.bundle")), (std::vector{true, false, true, false, false}));
    EXPECT_EQ(kindsOf("/"), (std::vector{true, false, false, false, true}));
    EXPECT_EQ(kindsOf("/dev/null"), (std::vector{false, false, false, false, false}));
    EXPECT_EQ(kindsOf(folder_.at("none.app")), (std::vector{false, false, false, false, false}));
}

TEST_F(AResource, IsExecutableWhenTheProcessMayExecuteIt) {
    const std::string path = folder_.writeFile("a", "");
    ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
    EXPECT_FALSE(isResource(path, kResourceKeyIsExecutable));
    ASSERT_EQ(::chmod(path.c_str(), 0700), 0);
    EXPECT_TRUE(isResource(path, kResourceKeyIsExecutable));
    EXPECT_TRUE(isResource(folder_.path(), kResourceKeyIsExecutable));
}

TEST_F(AResource, IsAVolumeWhereOneIsMounted) {
    test::withOwnMounts([&] {
        test::mountNew(folder_.makeFolder("volume"));
        EXPECT_TRUE(isResource(folder_.at("volume"), kResourceKeyIsVolume));
        EXPECT_FALSE(isResource(folder_.makeFolder("volume/sub"), kResourceKeyIsVolume));
        test::bindMount(folder_.at("volume/sub"), folder_.makeFolder("shown"));
        EXPECT_TRUE(isResource(folder_.at("shown"), kResourceKeyIsVolume));
        test::bindMount(folder_.writeFile("volume/file", ""), folder_.writeFile("file", ""));
        EXPECT_FALSE(isResource(folder_.at("file"), kResourceKeyIsVolume));
    });
}

TEST_F(AResource, HasTheDateOfItsContentToTheLastBitOfTheNumber) {
    const std::string path = folder_.writeFile("a", "");
    const std::array<timespec, 2> times{{{978'307'201, 0}, {978'307'201, 123'456'789}}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0);
    EXPECT_EQ(resourceValue(path, kResourceKeyContentModificationDate), Value(Date{1.123456789}));
    const std::array<timespec, 2> later{{{978'307'201, 0}, {978'307'201, 123'456'790}}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), later.data(), 0), 0);
    EXPECT_NE(resourceValue(path, kResourceKeyContentModificationDate), Value(Date{1.123456789}));
}

TEST_F(AResource, HasAnIdentifierThatStaysWhenItMoves) {
    const std::string path = folder_.writeFile("a", "");
    const auto before = resourceValue(path, kResourceKeyFileIdentifier);
    ASSERT_NE(before->as<Data>(), nullptr);
    std::filesystem::rename(path, folder_.at("b"));
    EXPECT_EQ(resourceValue(folder_.at("b"), kResourceKeyFileIdentifier), before);
    EXPECT_NE(resourceValue(folder_.writeFile("a", ""), kResourceKeyFileIdentifier), before);
}

TEST_F(AResource, ThatIsMissingHasNoValues) {
    EXPECT_EQ(resourceValue(folder_.at("none"), kResourceKeyName), std::nullopt);
    EXPECT_EQ(resourceValue(folder_.path(), "none"), std::nullopt);
    EXPECT_FALSE(isResource(folder_.path(), kResourceKeyName));
}

TEST_F(AResource, ThatIsAnApplicationHasItsDisplayName) {
    writeList("W.app/Contents/Info.plist", {{"QCBundleName", "Short"}});
    EXPECT_EQ(localizedName("W.app"), Value("Short"));
    writeList("W.app/Contents/Info.plist", {{"QCBundleName", "Short"}, {"QCBundleDisplayName", "Writer"}});
    EXPECT_EQ(localizedName("W.app"), Value("Writer"));
    writeList("W.app/Contents/Resources/de/InfoPlist.plist", {{"QCBundleName", "Kurz"}});
    EXPECT_EQ(localizedName("W.app"), Value("Writer"));
    writeList("W.app/Contents/Resources/fr/InfoPlist.plist", {{"QCBundleDisplayName", "Plume"}});
    EXPECT_EQ(localizedName("W.app"), Value("Plume"));
    writeList("W.app/Contents/Resources/de/InfoPlist.plist", {{"QCBundleDisplayName", "Schreiber"}});
    EXPECT_EQ(localizedName("W.app"), Value("Schreiber"));
    writeList("W.app/Contents/Resources/de_AT/InfoPlist.plist", {{"QCBundleDisplayName", "Schreiberling"}});
    EXPECT_EQ(localizedName("W.app"), Value("Schreiberling"));
}

TEST_F(AResource, ThatIsNoApplicationHasNoDisplayName) {
    writeList("W.bundle/Contents/Info.plist", {{"QCBundleDisplayName", "Writer"}});
    EXPECT_EQ(localizedName("W.bundle"), Value("W.bundle"));
}

TEST_F(AResource, HasNamesInLanguagesOfAsManyBytesAsTheyMayHave) {
    constexpr std::size_t sizeMax = limits::kPropertyListFileMax / host::kLanguagesMax;
    constexpr std::string_view list =
        "<plist><dict><key>QCBundleDisplayName</key><string>Schreiber</string></dict></plist>";
    const auto padded = [&](std::size_t size) { return std::string(list) + std::string(size - list.size(), ' '); };
    folder_.writeFile("W.app/Contents/Resources/de/InfoPlist.plist", padded(sizeMax));
    EXPECT_EQ(localizedName("W.app"), Value("Schreiber"));
    folder_.writeFile("W.app/Contents/Resources/de/InfoPlist.plist", padded(sizeMax + 1));
    EXPECT_EQ(localizedName("W.app"), Value("W"));
    folder_.writeFile("W.app/Contents/Info.plist", padded(limits::kPropertyListFileMax));
    EXPECT_EQ(localizedName("W.app"), Value("Schreiber"));
}

TEST_F(AResource, IsNamedByNoMoreListsThanItTakes) {
    writeList("W.app/Contents/Info.plist", {{"QCBundleDisplayName", "Writer"}});
    writeList("W.app/Contents/Resources/de_AT/InfoPlist.plist", {{"QCBundleName", "Kurz"}});
    const test::SysFaults faults;
    EXPECT_EQ(localizedName("W.app"), Value("Writer"));
    const unsigned all = faults.count(host::sys::Call::Read);
    writeList("W.app/Contents/Resources/de_AT/InfoPlist.plist", {{"QCBundleDisplayName", "Schreiberling"}});
    const test::SysFaults fewer;
    EXPECT_EQ(localizedName("W.app"), Value("Schreiberling"));
    EXPECT_LT(fewer.count(host::sys::Call::Read), all);
}

TEST_F(AResource, IsWhatAUrlHasThatLeadsToOne) {
    const URL url = URL::fileURL(folder_.writeFile("file", ""));
    EXPECT_TRUE(hasFile(url));
    EXPECT_TRUE(hasFile(URL::fileURL(folder_.path(), PathKind::Directory)));
    EXPECT_FALSE(hasFile(std::nullopt));
    EXPECT_FALSE(hasFile(URL::fileURL(folder_.at("none"))));
    EXPECT_FALSE(hasFile(URL::fromString("https://example.com" + url.path())));
}

TEST_F(AResource, WithADamagedListIsCalledByItsName) {
    folder_.makeFolder("W.app/Contents");
    EXPECT_EQ(localizedName("W.app"), Value("W"));
    folder_.writeFile("W.app/Contents/Info.plist", "<plist><dict>");
    EXPECT_EQ(localizedName("W.app"), Value("W"));
    writeList("W.app/Contents/Info.plist", {{"QCBundleDisplayName", 7}, {"QCBundleName", ""}});
    EXPECT_EQ(localizedName("W.app"), Value("W"));
    writeList("W.app/Contents/Info.plist", {{"QCBundleName", std::string(limits::kDisplayNameMax, 'n')}});
    EXPECT_EQ(localizedName("W.app"), Value(std::string(limits::kDisplayNameMax, 'n')));
    writeList("W.app/Contents/Info.plist", {{"QCBundleName", std::string(limits::kDisplayNameMax + 1, 'n')}});
    EXPECT_EQ(localizedName("W.app"), Value("W"));
    folder_.writeFile("W.app/Contents/Info.plist", std::string(limits::kPropertyListFileMax + 1, ' '));
    EXPECT_EQ(localizedName("W.app"), Value("W"));
    std::filesystem::remove(folder_.at("W.app/Contents/Info.plist"));
    ASSERT_EQ(::mkfifo(folder_.at("W.app/Contents/Info.plist").c_str(), 0600), 0);
    EXPECT_EQ(localizedName("W.app"), Value("W"));
    std::filesystem::remove(folder_.at("W.app/Contents/Info.plist"));
    std::filesystem::create_symlink("Info.plist", folder_.at("W.app/Contents/Info.plist"));
    EXPECT_EQ(localizedName("W.app"), Value("W"));
}

TEST_F(AResource, WithANameThatIsNotUtf8IsShownWithReplacements) {
    folder_.makeFolder("\xFFW\xC3.app");
    EXPECT_EQ(localizedName("\xFFW\xC3.app"), Value("\xEF\xBF\xBDW\xEF\xBF\xBD"));
    EXPECT_EQ(resourceValue(folder_.at("\xFFW\xC3.app"), kResourceKeyName), Value("\xFFW\xC3.app"));
}

}  // namespace
}  // namespace ksw::facts
