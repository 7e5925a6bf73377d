// Case files under tests/corpus/cases: one case per row, columns split by " | ", "-" for an empty
// column; '#' starts a comment line and a line starting with a space continues the row above.
// Files holding several tables start each row with its table's tag.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
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

// The rows of a file, or those of one table (without the tag column).
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

}  // namespace tola_test
