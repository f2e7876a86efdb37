// How records are written.
#include <algorithm>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "tools/common/columns.h"
#include "tools/common/record.h"
#include "tools/common/terminal.h"
#include "tools/common/text.h"

namespace tools {
namespace {

constexpr int kOnOneLine = -1;  // the JSON library's word for it

/// A text that is longer puts only its own line out of step, or one such text would make all others as long.
constexpr std::size_t kColumnMax = 256;

/// Columns between two of a table's.
constexpr std::size_t kGap = 2;

/// ASCII only: no byte of an item comes through as a terminal's command.
std::string json(const Record& record, int indent) {
    return record.dump(indent, ' ', /*ensure_ascii=*/true, Record::error_handler_t::replace);
}

/// The fields of an object, those of objects inside it in their place.
void appendRows(std::vector<Row>& rows, const Record& object) {
    for (const auto& [name, value] : object.items()) {
        if (value.is_object()) {
            appendRows(rows, value);
        } else {
            rows.push_back({printable(name), cell(value)});
        }
    }
}

std::vector<std::size_t> widths(const std::vector<Row>& rows) {
    std::vector<std::size_t> widest;
    for (const Row& row : rows) {
        widest.resize(std::max(widest.size(), row.size()));
        for (std::size_t column = 0; column < row.size(); ++column) {
            widest[column] = std::max(widest[column], std::min(columnsOf(row[column]), kColumnMax));
        }
    }
    return widest;
}

std::string lineOf(const Row& row, const std::vector<std::size_t>& widest) {
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
        line += row[column];
        if (column + 1 < row.size()) {
            const std::size_t columns = columnsOf(row[column]);
            line.append(std::max(widest[column], columns) - columns + kGap, ' ');
        }
    }
    return line;
}

}  // namespace

std::string cell(const Record& value) {
    if (value.is_null()) {
        return "-";
    }
    if (value.is_boolean()) {
        return value.get<bool>() ? "yes" : "no";
    }
    if (value.is_string()) {
        return printable(value.get_ref<const std::string&>());
    }
    if (value.is_array()) {
        std::string text;
        for (const Record& element : value) {
            text += (text.empty() ? "" : " ") + cell(element);
        }
        return text;
    }
    return compactJson(value);
}

void printRows(const std::vector<Row>& rows) {
    const std::vector<std::size_t> widest = widths(rows);
    std::size_t indent = 0;
    for (std::size_t column = 0; column + 1 < widest.size(); ++column) {
        indent += widest[column] + kGap;
    }
    for (const Row& row : rows) {
        for (const std::string& part : shownLines(lineOf(row, widest), indent)) {
            std::cout << part << '\n';
        }
    }
}

std::string compactJson(const Record& record) {
    return json(record, kOnOneLine);
}

void print(const Record& record, Form form) {
    if (form == Form::Json) {
        std::cout << json(record, /*indent=*/2) << '\n';
        return;
    }
    std::vector<Row> rows;
    appendRows(rows, record);
    printRows(rows);
}

void printLines(const Record& records) {
    std::vector<Row> rows;
    for (const Record& record : records) {
        Row names;
        Row values;
        for (const auto& [name, value] : record.items()) {
            names.push_back(printable(name));
            values.push_back(cell(value));
        }
        if (rows.empty()) {
            rows.push_back(std::move(names));
        }
        rows.push_back(std::move(values));
    }
    const std::vector<std::size_t> widest = widths(rows);
    const std::optional<std::size_t> width = terminalWidth();
    for (const Row& row : rows) {
        const std::string line = lineOf(row, widest);
        std::cout << (width ? fitted(line, *width) : line) << '\n';
    }
}

}  // namespace tools
