// record.h: what kswctl prints, once as JSON for programs and once as a table for people.
#pragma once

#include <cstdint>

#include <nlohmann/json.hpp>

#include <kestrelwood/KSWItem.h>
#include <kestrelwood/values.h>

namespace kswctl {

/// Fields in the order in which they are printed.
using Record = nlohmann::ordered_json;

enum class Form { Table, Json };

/// An item as `register` shows it; null for no item. A daemon's record belongs to no single user, whoever asked.
Record recordOf(const KSWItem* item, ksw::Uid uid);

/// A property-list value as JSON: bytes in hexadecimal digits, dates and errors as text.
Record recordOf(const ksw::Value& value);
Record recordOf(const ksw::Dictionary& dictionary);

/// Writes an object to standard output. As JSON it is ASCII only, everything else escaped. As a table each field
/// has a line "name  value"; objects inside give their fields to the outer one, nothing prints as "-", and what a
/// terminal could obey is escaped.
void print(const Record& record, Form form);

/// Writes an array of objects with equal fields as a table with one line an object and the names on top.
void printLines(const Record& records);

}  // namespace kswctl
