// record.h: what a tool prints, once as JSON for programs and once as a table for people.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <kestrelwood/values.h>

namespace tools {

/// Fields in the order in which they are printed.
using Record = nlohmann::ordered_json;

enum class Form { Table, Json };

/// A property-list value as JSON: bytes in hexadecimal digits, dates as RFC 3339 in UTC, errors as text.
Record recordOf(const ksw::Value& value);
Record recordOf(const ksw::Dictionary& dictionary);

/// The value, or null.
template <class T>
Record orNull(const std::optional<T>& value) {
    return value ? Record(*value) : Record(nullptr);
}

/// Writes an object, or as JSON anything, to standard output. JSON is ASCII only, everything else escaped. As a
/// table each field has a line "name  value"; objects inside give their fields to the outer one, nothing prints as
/// "-", and what a terminal could obey is escaped.
void print(const Record& record, Form form);

/// JSON of a record on one line, ASCII only, without a line break behind it.
std::string compactJson(const Record& record);

/// Writes an array of objects with equal fields as a table with one line an object and the names on top. On a
/// terminal a line is as long as fits.
void printLines(const Record& records);

/// A line of a table, its texts fit for a terminal.
using Row = std::vector<std::string>;

/// A value as a table shows it.
std::string cell(const Record& value);

/// Writes the lines with their columns one below the other. On a terminal a line that does not fit goes on in the
/// next ones, below its last column.
void printRows(const std::vector<Row>& rows);

}  // namespace tools
