// What items look like as records.
#include <optional>
#include <string>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWTypes.h>

#include "tools/kswctl/record.h"

namespace tools::kswctl {
namespace {

/// Records of the system are kept together with their containers: an application's, and its developer's.
bool belongsToSystem(const KSWItem& item) {
    if (item.hasGlobalDataType() || item.containsDaemon()) {
        return true;
    }
    auto children = item.enumeratorOfEmbeddedItems();
    bool holdsDaemons = false;
    while (const KSWItem::Pointer child = holdsDaemons ? nullptr : children.nextObject()) {
        holdsDaemons = child->containsDaemon();
    }
    return holdsDaemons;
}

}  // namespace

Record recordOf(const KSWItem* item, ksw::Uid uid) {
    if (item == nullptr) {
        return nullptr;
    }
    const std::optional<ksw::UUID>& uuid = item->uuid();
    const std::optional<ksw::URL>& url = item->url();
    const std::string& developer = item->developerName();
    return Record::object({
        {"uuid", uuid ? Record(uuid->string()) : Record(nullptr)},
        {"identifier", orNull(item->identifier())},
        {"name", orNull(item->name())},
        {"developerName", developer.empty() ? Record(nullptr) : Record(developer)},
        {"type", item->type()},
        {"typeText", KSWItemTypeDescription(item->type())},
        {"flags", item->flags()},
        {"flagsText", KSWItemFlagsDescription(item->flags())},
        {"disposition", item->disposition()},
        {"dispositionText", KSWDispositionDescription(item->disposition())},
        {"url", url ? Record(url->absoluteString()) : Record(nullptr)},
        {"executablePath", orNull(item->executablePath())},
        {"programArguments", orNull(item->programArguments())},
        {"generation", item->generation()},
        {"uid", belongsToSystem(*item) ? ksw::kEveryUser : uid},
    });
}

Record listedRecordOf(const KSWItem& item, ksw::Uid uid) {
    Record record = recordOf(&item, uid);
    const KSWItem::Pointer container = item.container();
    record["container"] = container != nullptr ? orNull(container->identifier()) : Record(nullptr);
    return record;
}

void printList(const Record& records, Record (*rowOf)(const Record&), const Options& options) {
    if (options.json) {
        print(records, Form::Json);
        return;
    }
    Record rows = Record::array();
    for (const Record& record : records) {
        rows.push_back(rowOf(record));
    }
    printLines(rows);
}

Record answerRecord(std::int64_t code, const KSWItem* item, ksw::Uid uid, std::string_view message) {
    return Record::object({{"code", code},
                           {"message", message.empty() ? KSWErrorString(code) : std::string(message)},
                           {"item", recordOf(item, uid)}});
}

}  // namespace tools::kswctl
