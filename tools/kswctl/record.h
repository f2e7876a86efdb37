// record.h: what kswctl prints, once as JSON for programs and once as a table for people.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include <kestrelwood/KSWItem.h>
#include <kestrelwood/values.h>

#include "tools/kswctl/options.h"

namespace kswctl {

/// Fields in the order in which they are printed.
using Record = nlohmann::ordered_json;

enum class Form { Table, Json };

inline Form formOf(const Options& options) {
    return options.json ? Form::Json : Form::Table;
}

/// An item as `register` shows it; null for no item. A daemon's record, and that of a container of daemons, belongs
/// to no single user, whoever asked.
Record recordOf(const KSWItem* item, ksw::Uid uid);

/// An item as `list` shows it: as above, with the identifier of its container behind.
Record listedRecordOf(const KSWItem& item, ksw::Uid uid);

/// What became of a request about an item: "code", "message" and "item", as `register` shows them. Without a
/// message it is the code's own.
Record answerRecord(std::int64_t code, const KSWItem* item, ksw::Uid uid, std::string_view message = {});

/// A property-list value as JSON: bytes in hexadecimal digits, dates and errors as text.
Record recordOf(const ksw::Value& value);
Record recordOf(const ksw::Dictionary& dictionary);

/// Writes an object, or as JSON anything, to standard output. JSON is ASCII only, everything else escaped. As a
/// table each field has a line "name  value"; objects inside give their fields to the outer one, nothing prints as
/// "-", and what a terminal could obey is escaped.
void print(const Record& record, Form form);

/// JSON of a record on one line, ASCII only, without a line break behind it.
std::string compactJson(const Record& record);

/// Writes an array of objects with equal fields as a table with one line an object and the names on top.
void printLines(const Record& records);

}  // namespace kswctl
