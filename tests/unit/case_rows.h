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
    EXPECT_TRUE(in.is_open()) << name;
    std::vector<CaseRow> rows;
    std::vector<std::string> text;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        size_t indent = line.find_first_not_of(' ');
        if (indent == std::string::npos || line[0] == '#') {
            continue;
        }
        if (indent > 0 && !text.empty()) {
            text.back() += line.substr(indent - 1);
        } else {
            rows.push_back({name + ":" + std::to_string(number), {}});
            text.push_back(line);
        }
    }
    for (size_t r = 0; r < rows.size(); ++r) {
        for (size_t start = 0, bar;; start = bar + 3) {
            bar = text[r].find(" | ", start);
            rows[r].cols.push_back(text[r].substr(start, bar - start));
            if (bar == std::string::npos) {
                break;
            }
        }
    }
    std::vector<CaseRow> tagged;
    for (CaseRow& row : rows) {
        if (!tag.empty() && row.cols[0] == tag) {
            row.cols.erase(row.cols.begin());
            tagged.push_back(row);
        }
    }
    EXPECT_FALSE((tag.empty() ? rows : tagged).empty()) << name << " " << tag;
    return tag.empty() ? rows : tagged;
}

}  // namespace tola_test
