// What items and property-list values look like as records.
#include <cstdio>
#include <optional>
#include <string>
#include <variant>

#include <kestrelwood/KSWErrors.h>
#include <kestrelwood/KSWTypes.h>

#include "tools/kswctl/record.h"

namespace kswctl {
namespace {

template <class T>
Record orNull(const std::optional<T>& value) {
    return value ? Record(*value) : Record(nullptr);
}

std::string hexadecimal(const ksw::Data& bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0xFU];
    }
    return text;
}

/// One overload for each kind of value.
struct AsRecord {
    Record operator()(std::monostate) const { return nullptr; }
    Record operator()(const ksw::Data& bytes) const { return hexadecimal(bytes); }
    Record operator()(const ksw::Date& date) const { return date.string(); }
    Record operator()(const ksw::Error& error) const { return error.description(); }
    Record operator()(const ksw::Dictionary& dictionary) const { return recordOf(dictionary); }
    Record operator()(const ksw::Array& array) const {
        Record list = Record::array();
        for (const ksw::Value& element : array) {
            list.push_back(recordOf(element));
        }
        return list;
    }
    template <class Plain>
    Record operator()(const Plain& plain) const {
        return plain;
    }
};

/// Records of the system are kept together with their containers.
bool belongsToSystem(const KSWItem& item) {
    return item.hasGlobalDataType() || item.containsDaemon();
}

}  // namespace

Record recordOf(const ksw::Value& value) {
    return std::visit(AsRecord{}, value.storage());
}

Record recordOf(const ksw::Dictionary& dictionary) {
    Record object = Record::object();
    for (const auto& [key, value] : dictionary) {
        object[key] = recordOf(value);
    }
    return object;
}

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

Record answerRecord(std::int64_t code, const KSWItem* item, ksw::Uid uid, std::string_view message) {
    return Record::object({{"code", code},
                           {"message", message.empty() ? KSWErrorString(code) : std::string(message)},
                           {"item", recordOf(item, uid)}});
}

}  // namespace kswctl
