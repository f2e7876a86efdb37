// What would be known of a job's item, and why some of it is not.
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <kestrelwood/KSWTypes.h>

#include "tools/kswctl/absent_facts.h"
#include "tools/kswctl/derived_item.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

Record textOf(const std::optional<ksw::URL>& url) {
    return url ? Record(url->absoluteString()) : Record(nullptr);
}

Record hexOf(const std::optional<ksw::Data>& data) {
    return data ? recordOf(ksw::Value(*data)) : Record(nullptr);
}

/// Seconds since 2001-01-01 00:00:00 UTC; 0 stands for none.
Record dateOf(double seconds) {
    return seconds == 0 ? Record(nullptr) : recordOf(ksw::Value(ksw::Date{seconds}));
}

/// Beside what every item's record shows, which needs no UUID, generation and user as long as there is no record.
Record inspected(const DerivedItem& derived) {
    KSWItem& item = *derived.item;
    Record record = recordOf(&item, ksw::kNoUser);
    for (const char* const field : {"uuid", "generation", "uid"}) {
        record.erase(field);
    }
    const auto& application = derived.application;
    record.update(Record::object({
        {"launcher", derived.isLauncher},
        {"modificationDate", dateOf(item.modificationDate())},
        {"executableModificationDate", dateOf(item.executableModificationDate())},
        {"sha256", hexOf(item.sha256())},
        {"bundleIdentifier", orNull(item.bundleIdentifier())},
        {"associatedBundleIdentifiers", orNull(item.associatedBundleIdentifiers())},
        {"teamIdentifier", orNull(item.teamIdentifier())},
        {"designatedRequirement", orNull(item.designatedRequirement())},
        {"lightweightRequirement", hexOf(item.lightweightRequirement())},
        {"vouchingApplication", textOf(derived.vouching)},
        {"container", application ? orNull(application->identifier()) : Record(nullptr)},
        {"containerURL", application ? textOf(application->url()) : Record(nullptr)},
        {"developer", orNull(derived.developer->identifier())},
        {"iconURL", textOf(item.iconURL())},
    }));
    return record;
}

void printTable(const Record& record, const Record& absent) {
    std::vector<Row> rows;
    for (const auto& [field, value] : record.items()) {
        rows.push_back({field, absent.contains(field) ? "- (" + cell(absent[field]) + ")" : cell(value)});
    }
    printRows(rows);
}

}  // namespace

ExitStatus inspectJob(const Options& options) {
    const Outcome<DerivedItem> outcome = derivedItemOf(options);
    if (const auto* complaint = std::get_if<Complaint>(&outcome)) {
        return complain(*complaint);
    }
    const auto& derived = std::get<DerivedItem>(outcome);
    Record record = inspected(derived);
    Record absent = absentFacts(derived, record);
    if (options.json) {
        record["absent"] = std::move(absent);
        print(record, Form::Json);
    } else {
        printTable(record, absent);
    }
    return ExitStatus::Done;
}

}  // namespace tools::kswctl
