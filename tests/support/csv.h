// The rows of a table in tests/data, as text by the name of the column.
#pragma once

#include "tests/support/folder.h"

#include <cmath>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <vector>

class Csv_Row {
public:
    Csv_Row(const std::vector<std::string> &columns, const std::string &line) : line_(line)
    {
        std::istringstream fields(line);
        for (const std::string &column : columns) std::getline(fields, fields_[column], ',');
    }
    const std::string &Text(const std::string &column) const { return fields_.at(column); }
    double Number(const std::string &column) const { return std::strtod(Text(column).c_str(), nullptr); }
    int Int(const std::string &column) const { return std::atoi(Text(column).c_str()); }
    // All fields in their order; what is no number reads as not-a-number.
    std::vector<double> Numbers() const
    {
        std::vector<double> numbers;
        std::istringstream fields(line_);
        for (std::string field; std::getline(fields, field, ',');) {
            char *end = nullptr;
            const double number = std::strtod(field.c_str(), &end);
            numbers.push_back(end == field.c_str() ? std::nan("") : number);
        }
        return numbers;
    }
    const std::string &Line() const { return line_; }

private:
    std::string line_;
    std::map<std::string, std::string> fields_;
};

// Empty when there is no such file. The first line names the columns.
inline std::vector<Csv_Row> Csv_Rows(const std::string &name)
{
    std::istringstream table(Whole_File(std::string(KERNEL_TEST_DATA "/") + name));
    std::vector<std::string> columns;
    std::vector<Csv_Row> rows;
    for (std::string line; std::getline(table, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (columns.empty()) {
            std::istringstream names(line);
            for (std::string column; std::getline(names, column, ',');) columns.push_back(column);
        } else {
            rows.emplace_back(columns, line);
        }
    }
    return rows;
}
