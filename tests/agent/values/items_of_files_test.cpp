// Login items and background items of files: how they are made, named and told apart.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <unordered_set>

#include <kestrelwood/KSWAdditions.h>
#include <kestrelwood/KSWBackgroundItem.h>
#include <kestrelwood/KSWItem.h>
#include <kestrelwood/KSWLoginItem.h>
#include <kestrelwood/agent_item_set.h>

#include "agent/values/login_item_archive.h"
#include "platform/archive/keyed_archive.h"
#include "platform/base/text.h"
#include "platform/facts/bookmark_blob.h"
#include "platform/host/log_capture.h"
#include "tests/support/sys_faults.h"
#include "tests/support/temp_folder.h"

namespace ksw::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Pointer = std::shared_ptr<KSWLoginItem>;
using LoginItemSet = AgentItemSet<KSWLoginItem>;

const std::vector<std::string> kRecordedKeys{kResourceKeyLocalizedName, kResourceKeyIsPackage,
                                             kResourceKeyIsDirectory,   kResourceKeyIsApplication,
                                             kResourceKeyIsExecutable,  kResourceKeyIsVolume};

class AnItemOfAFile : public ::testing::Test {
protected:
    std::optional<URL> urlOf(const std::string& name) { return URL::fileURL(folder_.writeFile(name, "a")); }
    std::string missingFileText(const std::optional<URL>& url) const {
        return format("Failed to create bookmark with URL: %@ error: %@", url,
                      Error(ObjectError::NoSuchFile, "\"" + url->path() + "\" does not exist"));
    }

    TempFolder folder_;
    host::LogCapture log_;
};

TEST_F(AnItemOfAFile, HasABookmarkThatRecordsTheSixValues) {
    const auto item = KSWLoginItem::initWithURL(urlOf("tool"));
    ASSERT_TRUE(item->bookmark().has_value());
    EXPECT_EQ(__ksw_resourcePropertiesForKeys(*item->bookmark(), kRecordedKeys).size(), kRecordedKeys.size());
    EXPECT_EQ(__ksw_resolveBookmark(*item->bookmark()), URL::fileURL(folder_.at("tool")));
    EXPECT_EQ(item->type(), 0U);
    EXPECT_FALSE(item->hidden());
    EXPECT_TRUE(KSWLoginItem::initWithURL(urlOf("tool"), true)->hidden());
}

TEST_F(AnItemOfAFile, IsConstructedWithoutABookmarkWhenThereIsNoFileAndSaysSo) {
    const std::optional<URL> missing = URL::fileURL(folder_.at("missing"));
    const auto item = KSWLoginItem::initWithURL(missing);
    EXPECT_EQ(item->bookmark(), std::nullopt);
    EXPECT_TRUE(item->identifier().has_value());
    EXPECT_EQ(item->name(), std::nullopt);
    EXPECT_THAT(log_.at(host::LogLevel::Error), ElementsAre(missingFileText(missing)));
}

TEST_F(AnItemOfAFile, HidesTheFileInTheLogOfOthers) {
    (void)KSWLoginItem::initWithURL(URL::fileURL(folder_.at("missing")));
    EXPECT_THAT(log_.lines().back().publicForm,
                ::testing::StartsWith("Failed to create bookmark with URL: <private> "));
}

TEST_F(AnItemOfAFile, IsConstructedWithoutABookmarkWhenThereIsNoURL) {
    EXPECT_EQ(KSWLoginItem::initWithURL(std::nullopt)->bookmark(), std::nullopt);
    EXPECT_EQ(log_.count("Failed to create bookmark with URL: (null) error: Error Domain=KSWStatusErrorDomain "
                         "Code=-50 \"no URL\""),
              1U);
}

TEST_F(AnItemOfAFile, IsOfTypeThreeAndUndecidedInTheBackground) {
    const auto item = KSWBackgroundItem::initWithURL(urlOf("tool"));
    EXPECT_EQ(item->type(), 3U);
    EXPECT_EQ(item->userElection(), 0);
    EXPECT_TRUE(item->identifier().has_value());
    EXPECT_EQ(item->name(), "tool");
    ASSERT_TRUE(item->bookmark().has_value());
    EXPECT_EQ(__ksw_resourcePropertiesForKeys(*item->bookmark(), kRecordedKeys).size(), kRecordedKeys.size());
    EXPECT_THAT(log_.at(host::LogLevel::Error), IsEmpty());
}

TEST_F(AnItemOfAFile, InTheBackgroundHasNoBookmarkEitherWhenThereIsNoFile) {
    const std::optional<URL> missing = URL::fileURL(folder_.at("missing"));
    EXPECT_EQ(KSWBackgroundItem::initWithURL(missing)->bookmark(), std::nullopt);
    EXPECT_THAT(log_.at(host::LogLevel::Error), ElementsAre(missingFileText(missing)));
}

TEST_F(AnItemOfAFile, DescribesItselfByItsNameAndWhetherItIsHidden) {
    const auto item = KSWLoginItem::initWithURL(urlOf("tool"), true);
    const std::string address = format("%p", static_cast<const void*>(item.get()));
    EXPECT_EQ(item->description(), "<KSWLoginItem: " + address + "> tool hidden: YES");
    item->setHidden(false);
    EXPECT_EQ(item->description(), "<KSWLoginItem: " + address + "> tool hidden: NO");
    EXPECT_THAT(KSWLoginItem::initWithBookmark(std::nullopt, false)->description(),
                ::testing::EndsWith("> (null) hidden: NO"));
}

TEST_F(AnItemOfAFile, IsEqualToAnotherOfTheSameFileWhateverElseDiffers) {
    const std::optional<URL> url = urlOf("tool");
    const auto item = KSWLoginItem::initWithURL(url);
    const auto other = KSWLoginItem::initWithType(KSWItemTypeApp, std::nullopt, item->bookmark(), true);
    EXPECT_NE(item->identifier(), other->identifier());
    EXPECT_TRUE(item->isEqual(other));
    EXPECT_TRUE(item->isEqualToLoginItem(other));
    EXPECT_FALSE(item->isIdenticalToLoginItem(other));
    std::filesystem::rename(folder_.at("tool"), folder_.at("renamed"));
    EXPECT_TRUE(item->isEqual(KSWLoginItem::initWithURL(URL::fileURL(folder_.at("renamed")))));
}

TEST_F(AnItemOfAFile, IsEqualExactlyWhenTheBookmarksMatchAsOneFile) {
    facts::BookmarkContent content;
    content.path = "/opt/tool";
    content.file = facts::FileRecord{7, {1, 2, 3, 4}};
    std::vector<Data> bookmarks{*facts::writeBookmark(content, {})};
    const auto add = [&](auto change) {
        facts::BookmarkContent changed = content;
        change(changed);
        bookmarks.push_back(*facts::writeBookmark(changed, {}));
    };
    add([](auto& c) { c.path = "/opt/moved"; });
    add([](auto& c) { c.file->volume = 8; });
    add([](auto& c) { c.file->volume = 0; });
    add([](auto& c) { c.file->identifier.device = 9; });
    add([](auto& c) { c.file->identifier.inode = 9; });
    add([](auto& c) { c.file->identifier.birthSeconds = 9; });
    add([](auto& c) { c.file->identifier.birthNanoseconds = 9; });
    add([](auto& c) { c.file.reset(); });
    for (const char* url : {"https://example.com/a", "https://example.com/b"}) {
        bookmarks.push_back(*__ksw_bookmarkDataWithURL(URL::fromString(url)));
    }
    bookmarks.push_back(Data{1});
    for (const Data& left : bookmarks) {
        for (const Data& right : bookmarks) {
            EXPECT_EQ(
                KSWLoginItem::initWithBookmark(left, false)->isEqual(KSWLoginItem::initWithBookmark(right, false)),
                __ksw_matchBookmark(left, right, 0x8000))
                << describe(Bytes(left)) << " " << describe(Bytes(right));
        }
    }
}

TEST_F(AnItemOfAFile, DiffersFromOneOfAnotherFileAtItsPath) {
    const auto item = KSWLoginItem::initWithURL(urlOf("tool"));
    std::filesystem::rename(folder_.at("tool"), folder_.at("former"));
    EXPECT_FALSE(item->isEqual(KSWLoginItem::initWithURL(urlOf("tool"))));
}

TEST_F(AnItemOfAFile, IsEqualToItselfAndToNothingElseThatIsNoLoginItem) {
    const auto item = KSWLoginItem::initWithBookmark(std::nullopt, false);
    EXPECT_TRUE(item->isEqual(item));
    EXPECT_TRUE(item->isEqual(*item));
    EXPECT_FALSE(item->isEqual(nullptr));
    EXPECT_FALSE(item->isEqualToLoginItem(nullptr));
    EXPECT_FALSE(item->isEqual(KSWBackgroundItem::initWithType(1, std::nullopt)));
    EXPECT_FALSE(item->isEqual(KSWLoginItem::initWithBookmark(std::nullopt, false)));
}

TEST_F(AnItemOfAFile, IsNotEqualToAnotherWithoutIdentifierAndBookmark) {
    EXPECT_FALSE(std::make_shared<KSWLoginItem>()->isEqual(std::make_shared<KSWLoginItem>()));
    const auto unreadable = KSWLoginItem::initWithBookmark(Data{1, 2}, false);
    EXPECT_FALSE(unreadable->isEqual(KSWLoginItem::initWithBookmark(Data{1, 2}, false)));
}

TEST_F(AnItemOfAFile, IsEqualToItsDecodedForm) {
    const auto item = KSWLoginItem::initWithBookmark(Data{1, 2}, false);  // by its identifier
    const auto ofFile = KSWLoginItem::initWithURL(urlOf("tool"));
    for (const Pointer& one : {item, ofFile}) {
        const auto bytes = archive::archive(*one, archive::Coder::ServiceConnection);
        ASSERT_TRUE(bytes.ok());
        archive::DecodeBudget budget(bytes->size());
        const auto decoded =
            archive::unarchive<KSWLoginItem>(*bytes, {.coder = archive::Coder::ServiceConnection}, budget);
        ASSERT_TRUE(decoded.ok());
        EXPECT_TRUE(one->isEqual(decoded->root));
        const auto again = KSWLoginItem::initWithBookmark(decoded->root->bookmark(), true);
        EXPECT_EQ(decoded->root->isEqual(again), one == ofFile);
    }
}

TEST_F(AnItemOfAFile, IsNeverResolvedByItself) {
    const auto item = KSWLoginItem::initWithURL(urlOf("tool"));
    int calls = 0;
    item->getURLByResolvingBookmarkCompletion(
        [&calls](const std::optional<URL>& url, const std::optional<Error>& error) {
            ++calls;
            EXPECT_EQ(url, std::nullopt);
            EXPECT_EQ(error, Error(kStatusErrorDomain, -4));
            EXPECT_TRUE(error->userInfo().empty());
        });
    EXPECT_EQ(calls, 1);
    item->getURLByResolvingBookmarkCompletion(nullptr);
}

TEST_F(AnItemOfAFile, IsInASetOnceWhoeverMadeIt) {
    const auto first = KSWLoginItem::initWithURL(urlOf("one"));
    const auto same = KSWLoginItem::initWithURL(URL::fileURL(folder_.at("one")));
    const auto other = KSWLoginItem::initWithURL(urlOf("two"));
    const LoginItemSet set({first, other, nullptr, same, first});
    EXPECT_THAT(std::vector<Pointer>(set.begin(), set.end()), ElementsAre(first, other));
    EXPECT_EQ(set.member(*same), first);
    EXPECT_TRUE(set.contains(same));
    EXPECT_FALSE(set.contains(KSWLoginItem::initWithURL(urlOf("three"))));
    EXPECT_FALSE(set.contains(nullptr));
    EXPECT_EQ(LoginItemSet().size(), 0U);
}

TEST_F(AnItemOfAFile, InTheBackgroundIsInASetAsOftenAsItWasMade) {
    const auto item = KSWBackgroundItem::initWithURL(urlOf("one"));
    const auto same = KSWBackgroundItem::initWithURL(URL::fileURL(folder_.at("one")));
    EXPECT_FALSE(item->isEqual(same));
    EXPECT_EQ(AgentItemSet<KSWBackgroundItem>({item, same, item}).size(), 2U);
}

/// A bookmark of the file with this number, which nobody has made.
Data bookmarkOf(std::uint64_t number) {
    facts::BookmarkContent content;
    const std::string path = "/opt/tools/tool-" + std::to_string(number);
    content.path = path;
    content.file = facts::FileRecord{7, {1, number, 0, 0}};
    return *facts::writeBookmark(content, {});
}

struct ByItsHash {
    std::size_t operator()(const Pointer& item) const { return item->hash(); }
};
struct ByWhatItIs {
    bool operator()(const Pointer& left, const Pointer& right) const { return left->isEqual(right); }
};

/// Of this thread's own time: what others do on the machine does not count.
template <class Work>
double milliseconds(Work work) {
    const auto now = [] {
        timespec time{};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
    };
    const double start = now();
    work();
    return now() - start;
}

// clang builds what is slow on purpose: with sanitizers, or without optimisation.
#if defined(__clang__)
constexpr double kMillisecondsMax = 5'000;
#else
constexpr double kMillisecondsMax = 50;
#endif

TEST(AThousandLoginItems, AreMadeASetAndLookedUpWithoutLookingAtAFile) {
    constexpr std::size_t kCount = 1024;
    std::vector<Pointer> items;
    std::vector<Pointer> same;
    for (std::size_t number = 0; number < kCount; ++number) {
        items.push_back(KSWLoginItem::initWithBookmark(bookmarkOf(number), false));
        same.push_back(KSWLoginItem::initWithBookmark(bookmarkOf(number), true));
    }
    const SysFaults calls;
    LoginItemSet set;
    std::unordered_set<Pointer, ByItsHash, ByWhatItIs> hashed;
    const double building = milliseconds([&] { set = LoginItemSet(items); });
    const double lookingUp = milliseconds([&] {
        for (const Pointer& item : same) {
            EXPECT_EQ(set.contains(item), true);
        }
    });
    const double hashing = milliseconds([&] { hashed.insert(items.begin(), items.end()); });
    const double finding = milliseconds([&] {
        for (const Pointer& item : same) {
            EXPECT_TRUE(hashed.contains(item));
        }
    });
    EXPECT_EQ(set.size(), kCount);
    EXPECT_EQ(hashed.size(), kCount);
    for (int call = 0; call < static_cast<int>(host::sys::Call::Count); ++call) {
        EXPECT_EQ(calls.count(static_cast<host::sys::Call>(call)), 0U);
    }
    EXPECT_LT(building, kMillisecondsMax);
    EXPECT_LT(lookingUp, kMillisecondsMax);
    EXPECT_LT(hashing, kMillisecondsMax);
    EXPECT_LT(finding, kMillisecondsMax);
    RecordProperty("milliseconds", format("set %d us, lookups %d us, hashed %d us, lookups %d us",
                                          static_cast<int>(building * 1000), static_cast<int>(lookingUp * 1000),
                                          static_cast<int>(hashing * 1000), static_cast<int>(finding * 1000)));
}

}  // namespace
}  // namespace ksw::test
