// What a user is told, in which words, and what goes together.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "platform/host/log_capture.h"
#include "servers/kestrelwoodd/notices.h"
#include "tests/support/manual_clock.h"
#include "tests/support/temp_folder.h"

namespace ksw::daemon {
namespace {

using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::int64_t kAgentsAndDaemons = 0x18;

class ANotice : public testing::Test {
protected:
    static ItemPointer itemNamed(const std::string& name, KSWItemType type = KSWItemTypeAgent) {
        ItemPointer item = KSWItem::itemWithType(type, "8." + name);
        item->setName(name);
        return item;
    }
    Result<std::uint32_t> show(const host::DesktopNotice& notice) {
        shown_.push_back(notice);
        if (fails_) {
            return Error(ConnectionError::Unreachable, "no desktop");
        }
        return notice.replaces != 0 ? notice.replaces : ++number_;
    }
    std::string lastBody() const { return shown_.empty() ? "" : shown_.back().body; }

    bool fails_ = false;
    std::uint32_t number_ = 0;
    std::vector<host::DesktopNotice> shown_;
    ksw::test::ManualClock clock_;
    Notices notices_{[this](const host::DesktopNotice& notice) { return show(notice); }, clock_};
    const ItemPointer container_ = itemNamed("Ledger", KSWItemTypeApp);
    const host::LogCapture log_;
};

TEST_F(ANotice, TellsOfAContainer) {
    EXPECT_TRUE(notices_.adviseOfContainer(container_));
    ASSERT_THAT(shown_, SizeIs(1));
    EXPECT_EQ(shown_[0].summary, "New background items");
    EXPECT_EQ(shown_[0].body, "What belongs to Ledger may start by itself.");
    EXPECT_EQ(shown_[0].urgency, host::Urgency::Normal);
    EXPECT_EQ(shown_[0].replaces, 0U);
}

TEST_F(ANotice, TellsOfAnItemAndWhoseItIs) {
    EXPECT_TRUE(notices_.adviseOfItem(itemNamed("Reminder"), container_));
    EXPECT_EQ(shown_[0].summary, "New background item");
    EXPECT_EQ(shown_[0].body, "Reminder of Ledger may start by itself.");
    EXPECT_TRUE(notices_.adviseOfItem(itemNamed("Alone"), nullptr));
    EXPECT_EQ(lastBody(), "Alone may start by itself.");
}

TEST_F(ANotice, TellsOfAnItemOfAnApplication) {
    const ksw::test::TempFolder folder;
    folder.writeFile("Ledger.app/Contents/Info.plist",
                     "<plist><dict><key>QCBundleName</key><string>The Ledger</string></dict></plist>");
    const URL app = URL::fileURL(folder.at("Ledger.app"), PathKind::Directory);
    EXPECT_TRUE(notices_.adviseOfItemOfApp(itemNamed("Reminder"), app));
    EXPECT_EQ(lastBody(), "Reminder of The Ledger may start by itself.");
    EXPECT_TRUE(notices_.adviseOfItemOfApp(itemNamed("Reminder"), URL::fileURL("/nowhere/Gone.app")));
    EXPECT_EQ(lastBody(), "Reminder of Gone.app may start by itself.");
    EXPECT_TRUE(notices_.adviseOfItemOfApp(itemNamed("Reminder"), std::nullopt));
    EXPECT_EQ(lastBody(), "Reminder may start by itself.");
}

TEST_F(ANotice, OfAnItemThatWaitsIsCritical) {
    EXPECT_TRUE(notices_.alertOfItem(itemNamed("Reminder"), container_));
    EXPECT_EQ(shown_[0].summary, "A background item waits for you");
    EXPECT_EQ(shown_[0].body, "Reminder of Ledger does not start before you allow it.");
    EXPECT_EQ(shown_[0].urgency, host::Urgency::Critical);
}

TEST_F(ANotice, OfAnItemThatWaitsStandsByItself) {
    EXPECT_TRUE(notices_.alertOfItem(itemNamed("One"), container_));
    EXPECT_TRUE(notices_.alertOfItem(itemNamed("Two"), container_));
    EXPECT_EQ(shown_[1].replaces, 0U);
}

/// Counts, kinds, and the words for them.
struct Counted {
    std::int64_t background;
    std::int64_t extensions;
    std::int64_t types;
    std::string body;
};

TEST_F(ANotice, TellsOfSeveralTogether) {
    const Counted cases[] = {
        {3, 2, kAgentsAndDaemons | 0x40,
         "3 background items and 2 extensions of Ledger may start by themselves (agent, daemon, lodestar)."},
        {1, 0, 8, "1 background item of Ledger may start by itself (agent)."},
        {0, 1, 0, "1 extension of Ledger may start by itself."},
        {0, 2, 0, "2 extensions of Ledger may start by themselves."},
        {1, 1, 0, "1 background item and 1 extension of Ledger may start by themselves."},
        {2, -5, 0x10000, "2 background items of Ledger may start by themselves."},
        {std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::max(), 0,
         "1000000 background items and 1000000 extensions of Ledger may start by themselves."}};
    for (const Counted& counted : cases) {
        EXPECT_TRUE(notices_.adviseOfMany(itemNamed("Reminder"), container_, counted.background, counted.extensions,
                                          counted.types));
        EXPECT_EQ(lastBody(), counted.body);
    }
}

TEST_F(ANotice, OfSeveralTakesThePlaceOfTheFormer) {
    EXPECT_TRUE(notices_.adviseOfItem(itemNamed("Reminder"), container_));
    EXPECT_TRUE(notices_.adviseOfMany(itemNamed("Reminder"), container_, 2, 0, 0));
    EXPECT_EQ(shown_[1].replaces, 1U);
}

TEST_F(ANotice, ThatCountsNothingIsNotShown) {
    EXPECT_FALSE(notices_.adviseOfMany(itemNamed("Reminder"), container_, 0, 0, 8));
    EXPECT_FALSE(notices_.adviseOfMany(itemNamed("Reminder"), container_, -1, -1, 8));
    EXPECT_THAT(shown_, IsEmpty());
}

TEST_F(ANotice, GoesTogetherWithThoseOfTheSameContainer) {
    EXPECT_TRUE(notices_.adviseOfItem(itemNamed("One"), container_));
    EXPECT_TRUE(notices_.adviseOfItem(itemNamed("Two"), container_));
    EXPECT_EQ(shown_[1].body, "2 background items of Ledger may start by themselves.");
    EXPECT_EQ(shown_[1].replaces, 1U);
    EXPECT_TRUE(notices_.adviseOfItem(itemNamed("Three", KSWItemTypeGlimpse), container_));
    EXPECT_EQ(shown_[2].body, "2 background items and 1 extension of Ledger may start by themselves.");
    EXPECT_EQ(shown_[2].replaces, 1U);
}

TEST_F(ANotice, OfTheSameItemCountsOnce) {
    const ItemPointer item = itemNamed("One");
    EXPECT_TRUE(notices_.adviseOfItem(item, container_));
    EXPECT_TRUE(notices_.adviseOfItem(item, container_));
    EXPECT_EQ(shown_[1].body, "One of Ledger may start by itself.");
    EXPECT_EQ(shown_[1].replaces, 1U);
}

TEST_F(ANotice, RemembersItemsOfSoManyBytesOnly) {
    const std::string name(kKeyMax, 'x');
    for (std::size_t number = 0; number < kItemKeysMax / kKeyMax; ++number) {
        const ItemPointer item = itemNamed("Many");
        item->setUuid(std::nullopt);
        item->setIdentifier(std::to_string(1000 + number) + name);
        ASSERT_TRUE(notices_.adviseOfItem(item, container_));
    }
    EXPECT_EQ(lastBody(), "256 background items of Ledger may start by themselves.");
    const ItemPointer more = itemNamed("More");
    for (int time = 0; time < 2; ++time) {
        ASSERT_TRUE(notices_.adviseOfItem(more, container_));
    }
    EXPECT_EQ(lastBody(), "258 background items of Ledger may start by themselves.");
}

TEST_F(ANotice, StandsByItselfAfterAWhile) {
    EXPECT_TRUE(notices_.adviseOfItem(itemNamed("One"), container_));
    clock_.advance(kTogether - std::chrono::nanoseconds(1));
    EXPECT_TRUE(notices_.adviseOfItem(itemNamed("Two"), container_));
    EXPECT_EQ(shown_[1].replaces, 1U);
    clock_.advance(kTogether);
    EXPECT_TRUE(notices_.adviseOfItem(itemNamed("Three"), container_));
    EXPECT_EQ(shown_[2].body, "Three of Ledger may start by itself.");
    EXPECT_EQ(shown_[2].replaces, 0U);
}

TEST_F(ANotice, OfAnotherContainerStandsByItself) {
    EXPECT_TRUE(notices_.adviseOfItem(itemNamed("One"), container_));
    EXPECT_TRUE(notices_.adviseOfItem(itemNamed("Two"), itemNamed("Other", KSWItemTypeApp)));
    EXPECT_EQ(shown_[1].replaces, 0U);
}

TEST_F(ANotice, ForgetsTheContainerToldOfLongestAgo) {
    std::vector<ItemPointer> containers;
    const auto adviseOfAnother = [&] {
        clock_.advance(std::chrono::nanoseconds(1));
        containers.push_back(itemNamed(std::to_string(containers.size()), KSWItemTypeApp));
        EXPECT_TRUE(notices_.adviseOfContainer(containers.back()));
    };
    while (containers.size() < kContainersMax) {
        adviseOfAnother();
    }
    EXPECT_TRUE(notices_.adviseOfContainer(containers[0]));
    EXPECT_EQ(shown_.back().replaces, 1U);
    adviseOfAnother();
    EXPECT_TRUE(notices_.adviseOfContainer(containers[0]));
    EXPECT_EQ(shown_.back().replaces, 1U);
    EXPECT_TRUE(notices_.adviseOfContainer(containers[1]));
    EXPECT_EQ(shown_.back().replaces, 0U);
}

TEST_F(ANotice, ThatTheDesktopDoesNotShowGoesIntoTheLog) {
    fails_ = true;
    EXPECT_FALSE(notices_.adviseOfItem(itemNamed("Reminder"), container_));
    EXPECT_THAT(log_.at(host::LogLevel::Notice),
                Contains("New background item: Reminder of Ledger may start by itself."));
    EXPECT_THAT(log_.at(host::LogLevel::Info),
                Contains("Notice not shown: Error Domain=KSWConnectionErrorDomain Code=1 \"no desktop\""));
}

TEST_F(ANotice, OfNothingIsNone) {
    EXPECT_FALSE(notices_.adviseOfContainer(nullptr));
    EXPECT_FALSE(notices_.adviseOfItem(nullptr, nullptr));
    EXPECT_FALSE(notices_.adviseOfItemOfApp(nullptr, URL::fileURL("/a")));
    EXPECT_FALSE(notices_.alertOfItem(nullptr, container_));
    EXPECT_FALSE(notices_.adviseOfMany(nullptr, nullptr, 1, 1, 8));
    EXPECT_THAT(shown_, IsEmpty());
}

TEST_F(ANotice, CallsAnItemWithoutANameByItsIdentifier) {
    const ItemPointer item = KSWItem::itemWithType(KSWItemTypeAgent, "8.com.example.agent");
    EXPECT_TRUE(notices_.adviseOfItem(item, nullptr));
    EXPECT_EQ(lastBody(), "8.com.example.agent may start by itself.");
    EXPECT_TRUE(notices_.adviseOfItem(std::make_shared<KSWItem>(), nullptr));
    EXPECT_EQ(lastBody(), "An item without a name may start by itself.");
}

TEST_F(ANotice, HasNothingThatATerminalObeysAndNoNameOfAnyLength) {
    EXPECT_TRUE(notices_.adviseOfItem(itemNamed("\x1b[2J\n" + std::string(1000, 'x')), nullptr));
    EXPECT_EQ(lastBody(), "\\x1b[2J\\n" + std::string(195, 'x') + " may start by itself.");
}

TEST_F(ANotice, NamesTheParentApplicationOfAnItemWithoutAContainer) {
    const ItemPointer item = itemNamed("Reminder");
    item->setExecutablePath("/nowhere/Ledger.app/Contents/Helpers/Inner.app/Contents/Linux/helper");
    EXPECT_TRUE(notices_.adviseOfItem(item, nullptr));
    EXPECT_EQ(lastBody(), "Reminder may start by itself.");
    EXPECT_TRUE(notices_.registerParentApps("/nowhere/Ledger.app/Contents/Linux/tool"));
    EXPECT_TRUE(notices_.adviseOfItem(item, nullptr));
    EXPECT_EQ(lastBody(), "Reminder of Ledger.app may start by itself.");
}

TEST_F(ANotice, KnowsNoParentApplicationInAPathWithoutOne) {
    for (const MaybeString& path : {MaybeString(), MaybeString(""), MaybeString("/usr/bin/tool"),
                                    MaybeString("/.app/x"), MaybeString("app")}) {
        EXPECT_FALSE(notices_.registerParentApps(path));
    }
    EXPECT_TRUE(notices_.registerParentApps("/Ledger.app"));
}

TEST_F(ANotice, KnowsSoManyParentApplications) {
    for (std::size_t i = 0; i < kParentAppsMax; ++i) {
        ASSERT_TRUE(notices_.registerParentApps("/" + std::to_string(i) + ".app"));
    }
    EXPECT_FALSE(notices_.registerParentApps("/more.app"));
    EXPECT_FALSE(notices_.registerParentApps("/" + std::string(kKeyMax, 'x') + ".app"));
    EXPECT_TRUE(notices_.registerParentApps("/0.app/Contents"));
}

}  // namespace
}  // namespace ksw::daemon
