// record.h: how items and answers about them are printed.
#pragma once

#include <cstdint>
#include <string_view>

#include <kestrelwood/KSWItem.h>
#include <kestrelwood/values.h>

#include "tools/common/record.h"
#include "tools/kswctl/options.h"

namespace tools::kswctl {

inline Form formOf(const Options& options) {
    return options.json ? Form::Json : Form::Table;
}

using tools::recordOf;

/// An item as `register` shows it; null for no item. A daemon's record, and that of a container of daemons, belongs
/// to no single user, whoever asked.
Record recordOf(const KSWItem* item, ksw::Uid uid);

/// An item as `list` shows it: as above, with the identifier of its container behind.
Record listedRecordOf(const KSWItem& item, ksw::Uid uid);

/// Prints a list: for programs its records whole, for a person a line of each, which `rowOf` makes of the record.
void printList(const Record& records, Record (*rowOf)(const Record&), const Options& options);

/// What became of a request about an item: "code", "message" and "item", as `register` shows them. Without a
/// message it is the code's own.
Record answerRecord(std::int64_t code, const KSWItem* item, ksw::Uid uid, std::string_view message = {});

}  // namespace tools::kswctl
