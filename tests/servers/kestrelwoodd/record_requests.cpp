#include "tests/servers/kestrelwoodd/record_requests.h"

#include <gtest/gtest.h>

#include "model/item/item_archive.h"
#include "platform/archive/keyed_archive.h"
#include "servers/kestrelwoodd/served_methods.h"

namespace ksw::daemon::test {

namespace {

template <class Thing>
Answer perform(DaemonInside& daemon, Operations::RecordOperation<Thing> operation, int number, const Thing& thing,
               Uid uid, const Caller& caller) {
    return daemon.operations().perform(operation, ruleOf(number), {thing, uid, caller});
}

}  // namespace

ItemPointer anAgent(std::string_view label) {
    const ItemPointer item = KSWItem::initWithType(kLegacyAgent, "8." + std::string(label));
    item->setName(std::string(label));
    item->setUrl(jobURL(label));
    item->setExecutablePath("/opt/tool");
    item->setProgramArguments(std::vector<std::string>{"tool", "--now"});
    item->setSha256(Data(32, 7));
    item->setModificationDate(1.5);
    item->setExecutableModificationDate(2.5);
    item->setDeveloperName("Maker");
    item->setTeamIdentifier("TEAM");
    item->setDesignatedRequirement("identifier \"x\"");
    item->setLightweightRequirement(Data{1, 2});
    item->setDisposition(KSWDispositionEnabled | KSWDispositionPendingAuthorization);
    item->setBookmark(Data{3, 4});
    item->setBundleIdentifier("com.example.tool");
    item->setAssociatedBundleIdentifiers(std::vector<std::string>{"com.example.app"});
    item->setEditable(true);
    item->setCanHide(true);
    item->setCurated(true);
    return item;
}

ItemPointer copyOf(const ItemPointer& item) {
    return copyOfRecord(*item);
}

Rule ruleOf(int number) {
    std::optional<Rule> rule;
    std::apply(
        [&](const auto&... row) {
            ((row.method.number == number ? static_cast<void>(rule = row.rule) : static_cast<void>(0)), ...);
        },
        kManagerMethods);
    EXPECT_TRUE(rule.has_value()) << number;
    return rule.value_or(Rule::Change);
}

std::vector<std::string> ReceivedList::identifiers() const {
    std::vector<std::string> identifiers;
    for (const ItemPointer& item : items) {
        identifiers.push_back(item->identifier().value_or("none"));
    }
    return identifiers;
}

ReceivedList receivedList(const std::optional<Data>& archive) {
    if (!archive) {
        ADD_FAILURE() << "there is no list";
        return {};
    }
    archive::DecodeBudget budget(archive->size());
    const archive::ReadOptions options{archive::Coder::Ordinary, archive::Cycles::Allowed};
    const auto read = archive::unarchive<ListRecord>(*archive, options, budget);
    if (!read.ok()) {
        ADD_FAILURE() << read.error().description();
        return {};
    }
    ReceivedList list{read->root->uid, read->root->type, {}};
    for (const ItemPointer& item : read->root->items.items) {
        list.items.push_back(read->owned(item));
    }
    return list;
}

Data archiveOf(const std::vector<ItemPointer>& items) {
    Result<Data> archive = archive::archiveArray<KSWItem>(items, archive::Coder::Ordinary);
    EXPECT_TRUE(archive.ok());
    return *std::move(archive);
}

Answer RecordRequests::lookUp(const Caller& caller, const std::optional<std::string>& identifier, Uid uid) {
    return perform(daemon_, &Operations::itemWithIdentifier, 17, identifier, uid, caller);
}

Answer RecordRequests::lookUp(const Caller& caller, const std::optional<UUID>& uuid, Uid uid) {
    return perform(daemon_, &Operations::itemWithUUID, 19, uuid, uid, caller);
}

Answer RecordRequests::ask(const Caller& caller, std::int64_t mask, Uid uid) {
    return perform(daemon_, &Operations::itemsMatching, 18, mask, uid, caller);
}

ReceivedList RecordRequests::list(const Caller& caller, std::int64_t mask, Uid uid) {
    const Answer answer = ask(caller, mask, uid);
    EXPECT_EQ(answer.code, KSWErrorNone);
    return receivedList(answer.list == nullptr ? std::nullopt : *answer.list);
}

Answer RecordRequests::add(const Caller& caller, const ItemPointer& item, Uid uid) {
    return perform(daemon_, &Operations::add, 21, item, uid, caller);
}

Answer RecordRequests::update(const Caller& caller, const ItemPointer& item, Uid uid) {
    return perform(daemon_, &Operations::updateItem, 22, item, uid, caller);
}

Answer RecordRequests::updateSet(const Caller& caller, const std::optional<Data>& archive, Uid uid) {
    return perform(daemon_, &Operations::updateItems, 23, archive, uid, caller);
}

Answer RecordRequests::remove(const Caller& caller, const std::optional<std::string>& identifier, Uid uid) {
    return perform(daemon_, &Operations::removeWithIdentifier, 24, identifier, uid, caller);
}

Answer RecordRequests::remove(const Caller& caller, const std::optional<UUID>& uuid, Uid uid) {
    return perform(daemon_, &Operations::removeWithUUID, 25, uuid, uid, caller);
}

}  // namespace ksw::daemon::test
