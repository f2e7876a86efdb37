#include "client/values/fetch_result_archive.h"

#include <gtest/gtest.h>

#include <kestrelwood/KSWErrors.h>

#include "model/item/item_archive.h"
#include "platform/archive/keyed_archive.h"
#include "platform/base/limits.h"
#include "platform/host/log_capture.h"

namespace {

using ksw::Data;
using ksw::Result;
using ksw::archive::Coder;
using ksw::archive::Cycles;
using ksw::host::LogCapture;
using ksw::host::LogLevel;
using Names = std::vector<std::string>;
using Pointer = std::shared_ptr<KSWFetchResult>;

constexpr std::string_view kInitError = "-[KSWFetchResult initWithCoder:]: QFKeyedUnarchiver init error: ";
constexpr std::string_view kDecoderError = "-[KSWFetchResult initWithCoder:]: decoder error: ";

KSWItem::Pointer item(KSWItemType type, std::string identifier) {
    return KSWItem::itemWithType(type, std::move(identifier));
}

Names names(const KSWFetchResult::Items& items) {
    Names identifiers;
    for (const auto& one : items) {
        identifiers.push_back(one->identifier().value());
    }
    return identifiers;
}

Result<ksw::archive::Unarchived<KSWFetchResult>> decode(const Data& archive) {
    ksw::archive::DecodeBudget budget(archive.size());
    return ksw::archive::unarchive<KSWFetchResult>(archive, {.coder = Coder::ServiceConnection}, budget);
}

Pointer roundTrip(const KSWFetchResult& result) {
    const Result<Data> archive = ksw::archive::archive(result, Coder::ServiceConnection);
    EXPECT_TRUE(archive.ok());
    const auto decoded = decode(*archive);
    EXPECT_TRUE(decoded.ok()) << (decoded.ok() ? "" : decoded.error().description());
    return decoded.ok() ? decoded->root : nullptr;
}

Data chainArchive(const KSWFetchResult::Items& chain) {
    return *ksw::archive::archiveArray<KSWItem>(chain, Coder::Ordinary);
}

/// agent in app of developer, and a second agent.
struct AFetchResult : testing::Test {
    KSWItem::Pointer developer = item(0x20, "Dev");
    KSWItem::Pointer app = item(0x2, "2.app");
    KSWItem::Pointer agent = item(0x8, "8.a");
    KSWItem::Pointer other = item(0x8, "8.b");

    AFetchResult() {
        app->setContainer(developer);
        agent->setContainer(app);
        other->setContainer(app);
    }
};

TEST_F(AFetchResult, WithoutItemIsEmpty) {
    const auto result = KSWFetchResult::resultWithCode(KSWErrorRecordNotFound, nullptr);
    EXPECT_EQ(result->code(), -95);
    EXPECT_TRUE(result->items().empty());
    EXPECT_TRUE(result->containers().empty());
    EXPECT_TRUE(result->encodedItems().empty());
    EXPECT_EQ(result->firstItem(), nullptr);
}

TEST_F(AFetchResult, LeavesOutItemsThatAreNone) {
    EXPECT_EQ(names(KSWFetchResult::initWithCode(0, {nullptr, agent})->items()), (Names{"8.a"}));
    EXPECT_EQ(names(KSWFetchResult::resultWithCode(0, {agent, other})->items()), (Names{"8.a", "8.b"}));
    EXPECT_TRUE(KSWFetchResult::resultWithCode(0, {})->items().empty());
}

TEST_F(AFetchResult, OfAnItemHasItsContainersOutermostLast) {
    const auto result = KSWFetchResult::resultWithCode(0, agent);
    EXPECT_EQ(names(result->items()), (Names{"8.a"}));
    EXPECT_EQ(names(result->containers()), (Names{"2.app", "Dev"}));
    EXPECT_EQ(result->encodedItems().size(), 1U);
    EXPECT_EQ(result->firstItem().get(), agent.get());
}

TEST_F(AFetchResult, CarriesOneArchiveOfTheWholeChain) {
    const auto result = KSWFetchResult::resultWithCode(0, agent);
    const Data& archive = result->encodedItems().at(0);
    ksw::archive::DecodeBudget budget(archive.size());
    const auto chain = ksw::archive::unarchiveArray<KSWItem>(archive, {.cycles = Cycles::Allowed}, budget);
    ASSERT_TRUE(chain.ok());
    EXPECT_EQ(names(chain->roots), (Names{"8.a", "2.app", "Dev"}));
}

TEST_F(AFetchResult, ArrivesWithItemAndContainers) {
    const auto decoded = roundTrip(*KSWFetchResult::resultWithCode(-96, agent));
    EXPECT_EQ(decoded->code(), -96);
    EXPECT_EQ(names(decoded->items()), (Names{"8.a"}));
    EXPECT_EQ(names(decoded->containers()), (Names{"2.app", "Dev"}));
    EXPECT_EQ(decoded->firstItem()->container().get(), decoded->containers()[0].get());
    EXPECT_EQ(decoded->containers()[0]->container().get(), decoded->containers()[1].get());
}

TEST_F(AFetchResult, ArrivesWithTheWholeFamily) {
    const auto decoded = roundTrip(*KSWFetchResult::resultWithCode(0, agent));
    const auto container = decoded->firstItem()->container();
    EXPECT_EQ(container->countOfEmbeddedItems(), 2U);
    EXPECT_NE(container->memberOfEmbeddedItems(other), nullptr);
}

TEST_F(AFetchResult, OfTwoItemsNamesASharedContainerTwice) {
    const auto result = KSWFetchResult::initWithCode(0, {agent, other});
    EXPECT_EQ(names(result->containers()), (Names{"2.app", "Dev", "2.app", "Dev"}));
    const auto decoded = roundTrip(*result);
    EXPECT_EQ(names(decoded->items()), (Names{"8.a", "8.b"}));
    EXPECT_EQ(names(decoded->containers()), (Names{"2.app", "Dev", "2.app", "Dev"}));
}

TEST_F(AFetchResult, ArrivesAgainWhenItIsSentOn) {
    const auto decoded = roundTrip(*roundTrip(*KSWFetchResult::resultWithCode(7, agent)));
    EXPECT_EQ(decoded->code(), 7);
    EXPECT_EQ(names(decoded->containers()), (Names{"2.app", "Dev"}));
}

TEST_F(AFetchResult, SendsItsCodeAndArchivesOnly) {
    std::vector<std::string_view> keys;
    for (const auto& row : ksw::archive::classInfo<KSWFetchResult>().fields) {
        keys.push_back(row.key.text());
    }
    EXPECT_EQ(keys, (std::vector<std::string_view>{"code", "encodedItems"}));
}

TEST_F(AFetchResult, HandsOutItemsThatKeepTheirContainersAlive) {
    auto built = KSWFetchResult::resultWithCode(0, agent);
    auto decoded = roundTrip(*built);
    const auto first = decoded->firstItem();
    const auto ours = built->firstItem();
    decoded.reset();
    built.reset();
    developer.reset();
    app.reset();
    for (const auto& kept : {first, ours}) {
        ASSERT_NE(kept->container(), nullptr);
        ASSERT_NE(kept->container()->container(), nullptr);
        EXPECT_EQ(kept->container()->container()->identifier(), "Dev");
    }
}

TEST_F(AFetchResult, HandsOutContainersThatKeepTheirContainersAlive) {
    auto decoded = roundTrip(*KSWFetchResult::resultWithCode(0, agent));
    const auto container = decoded->containers().front();
    decoded.reset();
    ASSERT_NE(container->container(), nullptr);
    EXPECT_EQ(container->container()->identifier(), "Dev");
}

TEST_F(AFetchResult, LeavesNothingBehind) {
    auto result = KSWFetchResult::resultWithCode(0, agent);
    const std::weak_ptr<KSWItem> watched = agent;
    agent.reset();
    result.reset();
    app->setEmbeddedItems(nullptr);
    EXPECT_TRUE(watched.expired());
}

TEST_F(AFetchResult, CanBeChanged) {
    const auto result = KSWFetchResult::resultWithCode(0, nullptr);
    result->setCode(3);
    result->setItems({agent});
    result->setContainers({app});
    result->setEncodedItems({Data{1}});
    EXPECT_EQ(result->code(), 3);
    EXPECT_EQ(result->firstItem(), agent);
    EXPECT_EQ(result->containers().front(), app);
    EXPECT_EQ(result->encodedItems(), std::vector<Data>{Data{1}});
}

TEST_F(AFetchResult, KeepsTheGoodEntryAndSaysWhichWasNot) {
    const LogCapture log;
    const auto result = KSWFetchResult::resultWithCode(0, agent);
    result->setEncodedItems({Data{0xFF, 0x00}, result->encodedItems().at(0)});
    const auto decoded = roundTrip(*result);
    EXPECT_EQ(names(decoded->items()), (Names{"8.a"}));
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].level, LogLevel::Error);
    EXPECT_TRUE(log.lines()[0].fullForm.starts_with(kInitError)) << log.lines()[0].fullForm;
    EXPECT_EQ(log.lines()[0].publicForm, log.lines()[0].fullForm);
}

TEST_F(AFetchResult, KeepsItsCodeWhenNoEntryCanBeRead) {
    const LogCapture log;
    const auto result = KSWFetchResult::resultWithCode(-93, nullptr);
    result->setEncodedItems({Data{}, Data{0x1B}});
    const auto decoded = roundTrip(*result);
    EXPECT_EQ(decoded->code(), -93);
    EXPECT_EQ(decoded->firstItem(), nullptr);
    EXPECT_TRUE(decoded->items().empty());
    EXPECT_EQ(log.lines().size(), 2U);
}

void expectDecoderError(const Data& archive) {
    const LogCapture log;
    const auto result = KSWFetchResult::resultWithCode(0, nullptr);
    result->setEncodedItems({archive});
    EXPECT_TRUE(roundTrip(*result)->items().empty());
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].level, LogLevel::Error);
    EXPECT_TRUE(log.lines()[0].fullForm.starts_with(kDecoderError)) << log.lines()[0].fullForm;
    EXPECT_EQ(log.lines()[0].publicForm, log.lines()[0].fullForm);
}

TEST_F(AFetchResult, SaysWhenAnEntryHasNoRoot) {
    expectDecoderError(Data{0xA0});
}

TEST_F(AFetchResult, SaysWhenTheContainersInAnEntryLeadRoundInACircle) {
    developer->setContainer(app);
    expectDecoderError(chainArchive({agent}));
    developer->setContainer(nullptr);
}

TEST_F(AFetchResult, SaysWhenAnEntryHoldsNoItem) {
    expectDecoderError(chainArchive({}));
}

TEST_F(AFetchResult, SaysWhenAnEntryHoldsAnotherClass) {
    expectDecoderError(*ksw::archive::archive(*KSWFetchResult::resultWithCode(0, nullptr), Coder::Ordinary));
}

TEST_F(AFetchResult, SaysWhichItemCannotBeArchived) {
    const LogCapture log;
    agent->setName(std::string(ksw::limits::kFieldMax + 1, 'n'));
    other->setContainer(nullptr);
    app->setEmbeddedItems(nullptr);
    const auto result = KSWFetchResult::initWithCode(0, {agent, other});
    EXPECT_EQ(names(result->items()), (Names{"8.a", "8.b"}));
    EXPECT_EQ(result->encodedItems().size(), 1U);
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[0].level, LogLevel::Error);
    EXPECT_EQ(log.lines()[0].fullForm,
              "-[KSWFetchResult initWithCode:items:]: failed to encode item: " + agent->description());
    EXPECT_EQ(log.lines()[0].publicForm, log.lines()[0].fullForm);
    EXPECT_TRUE(log.lines()[1].fullForm.starts_with(
        "-[KSWFetchResult initWithCode:items:]: error: Error Domain=KSWFormatErrorDomain Code=4"));
    EXPECT_EQ(log.lines()[1].publicForm, log.lines()[1].fullForm);
}

TEST_F(AFetchResult, OfAnItemThatIsItsOwnContainerEnds) {
    const LogCapture log;
    const auto own = item(0x2, "2.own");
    own->setContainer(own);
    const auto result = KSWFetchResult::resultWithCode(0, own);
    EXPECT_EQ(result->firstItem().get(), own.get());
    EXPECT_TRUE(result->containers().empty());
    EXPECT_TRUE(result->encodedItems().empty());
    EXPECT_EQ(log.lines().size(), 2U);
    own->setContainer(nullptr);
}

KSWFetchResult::Items chainOf(std::size_t containers) {
    KSWFetchResult::Items chain{item(0x2, "0")};
    while (chain.size() <= containers) {
        const auto next = item(0x2, std::to_string(chain.size()));
        next->setContainer(chain.back());
        chain.push_back(next);
    }
    return chain;
}

TEST_F(AFetchResult, CarriesTheLongestChainOfContainers) {
    const auto chain = chainOf(ksw::limits::kContainerChainMax);
    const auto decoded = roundTrip(*KSWFetchResult::resultWithCode(0, chain.back()));
    EXPECT_EQ(decoded->items().size(), 1U);
    EXPECT_EQ(decoded->containers().size(), ksw::limits::kContainerChainMax);
}

TEST_F(AFetchResult, DoesNotCarryAChainThatIsOneLonger) {
    const LogCapture log;
    const auto chain = chainOf(ksw::limits::kContainerChainMax + 1);
    const auto result = KSWFetchResult::resultWithCode(0, chain.back());
    EXPECT_TRUE(result->encodedItems().empty());
    EXPECT_EQ(log.at(LogLevel::Error).size(), 2U);
}

TEST_F(AFetchResult, MayCarryAsManyChainsAsAListHasItems) {
    const LogCapture log;
    const auto result = KSWFetchResult::resultWithCode(0, nullptr);
    result->setEncodedItems(std::vector<Data>(ksw::limits::kListItemsMax, Data{0xA0}));
    const auto archive = ksw::archive::archive(*result, Coder::ServiceConnection);
    ksw::archive::DecodeBudget budget(ksw::limits::kMiB);
    EXPECT_TRUE(ksw::archive::unarchive<KSWFetchResult>(*archive, {}, budget).ok());
}

TEST_F(AFetchResult, OfOneChainMoreIsRefused) {
    const auto result = KSWFetchResult::resultWithCode(0, nullptr);
    result->setEncodedItems(std::vector<Data>(ksw::limits::kListItemsMax + 1, Data{0xA0}));
    const auto archive = ksw::archive::archive(*result, Coder::ServiceConnection);
    ksw::archive::DecodeBudget budget(ksw::limits::kMiB);
    const auto decoded = ksw::archive::unarchive<KSWFetchResult>(*archive, {}, budget);
    ASSERT_FALSE(decoded.ok());
    EXPECT_EQ(decoded.error().code(), static_cast<std::int64_t>(ksw::FormatError::LimitPassed));
}

}  // namespace
