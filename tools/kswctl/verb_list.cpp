#include <memory>
#include <variant>

#include "tools/kswctl/items.h"
#include "tools/kswctl/record.h"
#include "tools/kswctl/verbs.h"

namespace tools::kswctl {
namespace {

/// What a person looks for in a list.
Record rowOf(const Record& item) {
    return Record::object({{"identifier", item["identifier"]},
                           {"type", item["typeText"]},
                           {"disposition", item["dispositionText"]},
                           {"name", item["name"]}});
}

}  // namespace

ExitStatus listItems(const Options& options) {
    const auto answer = listOrComplaint(options);
    if (const auto* status = std::get_if<ExitStatus>(&answer)) {
        return *status;
    }
    Record records = Record::array();
    for (const KSWItem::Pointer& item : std::get<std::shared_ptr<KSWList>>(answer)->items()) {
        Record record = listedRecordOf(*item, options.uid);
        records.push_back(options.json ? std::move(record) : rowOf(record));
    }
    if (options.json) {
        print(records, Form::Json);
    } else {
        printLines(records);
    }
    return ExitStatus::Done;
}

}  // namespace tools::kswctl
