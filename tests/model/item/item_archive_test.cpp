#include "model/item/item_archive.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/archive/keyed_archive.h"
#include "platform/base/limits.h"
#include "tests/model/item/items.h"

namespace {

using ksw::Data;
using ksw::FormatError;
using ksw::ItemSet;
using ksw::Result;
using ksw::archive::Coder;
using ksw::archive::Cycles;
using ksw::test::fullItem;
using ksw::test::item;
using Unarchived = ksw::archive::Unarchived<KSWItem>;

Result<Unarchived> decode(const Data& archive, Coder coder) {
    ksw::archive::DecodeBudget budget(archive.size());
    return ksw::archive::unarchive<KSWItem>(archive, {.coder = coder, .cycles = Cycles::Allowed}, budget);
}

Data encode(const KSWItem& item, Coder coder) {
    Result<Data> archive = ksw::archive::archive(item, coder);
    EXPECT_TRUE(archive.ok());
    return archive.ok() ? *archive : Data();
}

/// The item after a journey. Its containers live as long as it does.
KSWItem::Pointer roundTrip(const KSWItem& item, Coder coder) {
    const Result<Unarchived> decoded = decode(encode(item, coder), coder);
    EXPECT_TRUE(decoded.ok()) << (decoded.ok() ? "" : decoded.error().description());
    return decoded.ok() ? decoded->root : nullptr;
}

TEST(AnArchivedItem, HasItsKeysInTheirOrder) {
    const char* expected[] = {"uuid",
                              "identifier",
                              "generation",
                              "flags",
                              "url",
                              "modificationDate",
                              "sha256",
                              "executablePath",
                              "executableModificationDate",
                              "programArguments",
                              "name",
                              "developerName",
                              "teamIdentifier",
                              "designatedRequirement",
                              "lightweightRequirement",
                              "disposition",
                              "type",
                              "editable",
                              "canHide",
                              "bookmark",
                              "bundleIdentifier",
                              "associatedBundleIdentifiers",
                              "container",
                              "items"};
    const auto& info = ksw::archive::classInfo<KSWItem>();
    EXPECT_EQ(info.name, "KSWItem");
    ASSERT_EQ(info.fields.size(), std::size(expected));
    for (std::size_t i = 0; i < info.fields.size(); ++i) {
        EXPECT_EQ(info.fields[i].key.text(), expected[i]);
        const bool isItems = info.fields[i].key.text() == "items";
        EXPECT_EQ(info.fields[i].use == ksw::archive::FieldUse::OrdinaryOnly, isItems) << expected[i];
    }
}

TEST(AnArchivedItem, KeepsEveryField) {
    const auto source = fullItem();
    for (Coder coder : {Coder::Ordinary, Coder::ServiceConnection}) {
        const auto decoded = roundTrip(*source, coder);
        ASSERT_NE(decoded, nullptr);
        EXPECT_EQ(decoded->dumpVerboseDescription(), source->dumpVerboseDescription());
        EXPECT_EQ(decoded->flags(), source->flags());
        EXPECT_EQ(decoded->executableModificationDate(), source->executableModificationDate());
        EXPECT_EQ(decoded->programArguments(), source->programArguments());
        EXPECT_EQ(decoded->bookmark(), source->bookmark());
        EXPECT_EQ(decoded->designatedRequirement(), source->designatedRequirement());
        EXPECT_TRUE(decoded->isEditable());
        EXPECT_TRUE(decoded->canHide());
    }
}

TEST(AnArchivedItem, IsEqualBytesForEqualItems) {
    EXPECT_EQ(encode(*fullItem(), Coder::Ordinary), encode(*fullItem(), Coder::Ordinary));
}

TEST(AnArchivedItem, OfABareOneDecodesWithoutAnything) {
    const KSWItem bare;
    const auto decoded = roundTrip(bare, Coder::ServiceConnection);
    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(decoded->uuid(), std::nullopt);
    EXPECT_EQ(decoded->dumpVerboseDescription(), bare.dumpVerboseDescription());
}

TEST(AnArchivedItem, DoesNotKeepWhetherItsBookmarkIsStale) {
    const auto source = item(0x8, "8.a");
    source->setIsResolvedURLStale(true);
    EXPECT_FALSE(roundTrip(*source, Coder::Ordinary)->isResolvedURLStale());
}

TEST(AnArchivedItem, OfAnInvalidTypeDecodesWithTypeZero) {
    for (KSWItemType type : {0x18U, 0x0U, 0x10018U, 0xFFFU}) {
        EXPECT_EQ(roundTrip(*item(type, "x"), Coder::Ordinary)->type(), 0U) << type;
    }
    EXPECT_EQ(roundTrip(*item(0x7F0008, "x"), Coder::Ordinary)->type(), 0x7F0008U);
}

TEST(AnArchivedItem, TakesItsFlagsAsTheyStand) {
    const auto source = item(0x10008, "8.a");
    source->setFlags(0);
    EXPECT_EQ(roundTrip(*source, Coder::Ordinary)->flags(), 0U);
}

TEST(AReceivedItem, HasAParentButNoSetOfChildren) {
    const auto parent = item(0x20, "Dev");
    const auto source = item(0x2, "2.a");
    source->setContainer(parent);
    item(0x8, "8.c")->setContainer(source);
    const auto decoded = roundTrip(*source, Coder::ServiceConnection);
    EXPECT_EQ(decoded->embeddedItems(), nullptr);
    ASSERT_NE(decoded->container(), nullptr);
    EXPECT_EQ(decoded->container()->identifier(), "Dev");
    EXPECT_EQ(decoded->container()->embeddedItems(), nullptr);
}

TEST(AStoredItem, HasItsParentAndItsChildren) {
    const auto parent = item(0x20, "Dev");
    const auto source = item(0x2, "2.a");
    const auto first = item(0x8, "8.first");
    const auto second = item(0x8, "8.second");
    source->setContainer(parent);
    first->setContainer(source);
    second->setContainer(source);
    const auto decoded = roundTrip(*source, Coder::Ordinary);
    ASSERT_EQ(decoded->countOfEmbeddedItems(), 2U);
    const auto child = decoded->enumeratorOfEmbeddedItems().nextObject();
    EXPECT_EQ(child->identifier(), "8.first");
    EXPECT_EQ(child->container().get(), decoded.get());
    EXPECT_EQ(decoded->container()->memberOfEmbeddedItems(decoded).get(), decoded.get());
}

TEST(AStoredItem, WithoutItemsHasAnEmptySetOfChildren) {
    const KSWItem bare;
    const auto decoded = roundTrip(bare, Coder::Ordinary);
    ASSERT_NE(decoded->embeddedItems(), nullptr);
    EXPECT_TRUE(decoded->embeddedItems()->empty());
}

TEST(AStoredItem, KeepsTheFirstOfEqualChildren) {
    const auto source = item(0x2, "2.a");
    const auto first = item(0x8, "first");
    const auto second = item(0x10, "second");
    source->setEmbeddedItems(ItemSet::of({first, second}));
    second->setIdentifier("first");
    const auto decoded = roundTrip(*source, Coder::Ordinary);
    ASSERT_EQ(decoded->countOfEmbeddedItems(), 1U);
    EXPECT_EQ(decoded->enumeratorOfEmbeddedItems().nextObject()->type(), 0x8U);
}

/// An item with this many containers.
std::vector<KSWItem::Pointer> chainOf(std::size_t containers) {
    std::vector<KSWItem::Pointer> chain{item(0x2, "0")};
    while (chain.size() <= containers) {
        const auto next = item(0x2, std::to_string(chain.size()));
        next->setContainer(chain.back());
        chain.push_back(next);
    }
    return chain;
}

void expectRefusal(const KSWItem& source, std::string_view text) {
    for (Coder coder : {Coder::Ordinary, Coder::ServiceConnection}) {
        const auto decoded = decode(encode(source, coder), coder);
        ASSERT_FALSE(decoded.ok());
        EXPECT_EQ(decoded.error().domain(), ksw::kFormatErrorDomain);
        EXPECT_EQ(decoded.error().code(), static_cast<std::int64_t>(FormatError::LimitPassed));
        EXPECT_TRUE(decoded.error().localizedDescription().ends_with(text)) << decoded.error().description();
    }
}

TEST(AChainOfContainers, OfTheGreatestLengthIsDecoded) {
    const auto chain = chainOf(ksw::limits::kContainerChainMax);
    EXPECT_NE(roundTrip(*chain.back(), Coder::ServiceConnection), nullptr);
    EXPECT_NE(roundTrip(*chain.back(), Coder::Ordinary), nullptr);
}

TEST(AChainOfContainers, OneLongerIsRefused) {
    const auto chain = chainOf(ksw::limits::kContainerChainMax + 1);
    expectRefusal(*chain.back(), "container: more than 16 containers");
}

TEST(AChainOfContainers, ThatReturnsToItselfIsRefused) {
    const auto chain = chainOf(2);
    chain.front()->setContainer(chain.back());
    expectRefusal(*chain.back(), "container: the containers lead round in a circle");
    chain.front()->setContainer(nullptr);
}

TEST(AChainOfContainers, OfAnItemThatIsItsOwnContainerIsRefused) {
    const auto source = item(0x2, "2.a");
    source->setContainer(source);
    expectRefusal(*source, "container: the containers lead round in a circle");
    source->setContainer(nullptr);
}

TEST(AFieldOfAnItem, OfTheGreatestLengthIsDecoded) {
    const auto source = item(0x8, "8.a");
    source->setName(std::string(ksw::limits::kFieldMax, 'n'));
    source->setBookmark(Data(ksw::limits::kFieldMax, 7));
    EXPECT_EQ(roundTrip(*source, Coder::Ordinary)->name()->size(), ksw::limits::kFieldMax);
}

TEST(AFieldOfAnItem, OneByteLongerIsNotEncoded) {
    const auto named = item(0x8, "8.a");
    named->setName(std::string(ksw::limits::kFieldMax + 1, 'n'));
    const auto bookmarked = item(0x8, "8.a");
    bookmarked->setBookmark(Data(ksw::limits::kFieldMax + 1, 7));
    for (const auto& source : {named, bookmarked}) {
        const Result<Data> archive = ksw::archive::archive(*source, Coder::Ordinary);
        ASSERT_FALSE(archive.ok());
        EXPECT_EQ(archive.error().code(), static_cast<std::int64_t>(FormatError::LimitPassed));
    }
}

TEST(AFieldOfAnItem, OneByteLongerIsRefusedByAReader) {
    Data archive = encode(*item(0x8, "8.a"), Coder::Ordinary);
    // The text "8.a" behind its one-byte head becomes a text of one byte more than a field may have.
    const Data before = {0x63, '8', '.', 'a'};
    const auto at = std::search(archive.begin(), archive.end(), before.begin(), before.end());
    ASSERT_NE(at, archive.end());
    Data text = {0x7A, 0x00, 0x01, 0x00, 0x01};
    text.resize(text.size() + ksw::limits::kFieldMax + 1, 'x');
    archive.insert(archive.erase(at, at + 4), text.begin(), text.end());
    const auto decoded = decode(archive, Coder::Ordinary);
    ASSERT_FALSE(decoded.ok());
    EXPECT_EQ(decoded.error().code(), static_cast<std::int64_t>(FormatError::LimitPassed));
}

}  // namespace
