// Case files under tests/corpus/cases: the rows of one parameterised test, as data, in one of two
// forms.
// - *.txt: one case per row, columns split by " | ", "-" for an empty column; a line starting with
//   a space continues the row above (for documents over several lines). Files holding several
//   tables start each row with its table's tag. Texts are taken as they stand.
// - *.tsv: one case per line, fields separated by tabs. In a field, \t \n \r \v \b \\ and \xHH
//   stand for their bytes and \{N*C} for N copies of the character C, so that long or binary
//   texts stay one readable row.
// In both, lines that start with '#' are comments.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace tola_test {

struct CaseRow {
    std::string where;  // file:line, for traces
    std::vector<std::string> cols;
    // Column i, "" when "-" or missing.
    std::string operator[](size_t i) const { return i < cols.size() && cols[i] != "-" ? cols[i] : ""; }
    int num(size_t i) const { return std::stoi(cols.at(i)); }
};

// The rows of a .txt case file, or those of one table (without the tag column).
inline std::vector<CaseRow> readCaseRows(const std::string& name, const std::string& tag = "") {
    std::ifstream in(std::string(TOLA_SOURCE_DIR) + "/tests/corpus/cases/" + name);
    std::vector<CaseRow> rows, out;
    int number = 1;
    for (std::string line; std::getline(in, line); ++number) {
        size_t indent = line.find_first_not_of(' ');
        if (indent == std::string::npos || line[0] == '#') {
            continue;
        }
        if (indent == 0) {
            rows.push_back({name + ":" + std::to_string(number), {""}});
        }
        rows.back().cols[0] += line.substr(indent == 0 ? 0 : indent - 1);
    }
    for (CaseRow& row : rows) {
        std::string text = row.cols[0];
        row.cols.clear();
        for (size_t start = 0, bar = 0; bar != std::string::npos; start = bar + 3) {
            bar = text.find(" | ", start);
            row.cols.push_back(text.substr(start, bar - start));
        }
        if (tag.empty() || row.cols[0] == tag) {
            row.cols.erase(row.cols.begin(), row.cols.begin() + (tag.empty() ? 0 : 1));
            out.push_back(row);
        }
    }
    EXPECT_FALSE(out.empty()) << name << " " << tag;
    return out;
}

inline std::string unescapeField(const std::string& field) {
    std::string out;
    for (size_t i = 0; i < field.size(); ++i) {
        if (field[i] != '\\' || i + 1 == field.size()) {
            out += field[i];
            continue;
        }
        char c = field[++i];
        size_t star = field.find('*', i);
        if (c == 'x') {
            out += static_cast<char>(std::stoi(field.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else if (c == '{' && star != std::string::npos) {
            out.append(std::stoul(field.substr(i + 1, star - i - 1)), field[star + 1]);
            i = star + 2;  // the closing brace
        } else {
            const std::string from = "tnrvb", to = "\t\n\r\v\b";
            size_t k = from.find(c);
            out += k == std::string::npos ? c : to[k];
        }
    }
    return out;
}

// The rows of a .tsv case file, each with exactly `fields` fields (empty fields included), or
// with as many as it holds when `fields` is 0.
inline std::vector<std::vector<std::string>> readCases(const std::string& name, size_t fields) {
    std::ifstream in(std::string(TOLA_SOURCE_DIR) + "/tests/corpus/cases/" + name);
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        std::vector<std::string> row;
        std::istringstream cells(line);
        for (std::string cell; std::getline(cells, cell, '\t');) {
            row.push_back(unescapeField(cell));
        }
        if (fields != 0) {
            row.resize(std::max(row.size(), fields));  // trailing empty fields
            EXPECT_EQ(row.size(), fields) << name << ": " << line;
        }
        rows.push_back(row);
    }
    EXPECT_FALSE(rows.empty()) << name;
    return rows;
}

}  // namespace tola_test
