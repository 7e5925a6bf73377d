// Case files: the rows of one parameterised test, as data.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

// The rows of a case file (tests/corpus/cases/<name>): fields separated by tabs, "\n" and "\t" in
// a field for a line break and a tab; lines that start with '#' are comments.
inline std::vector<std::vector<std::string>> caseRows(const std::string& name) {
    std::ifstream in(std::string(TOLA_SOURCE_DIR) + "/tests/corpus/cases/" + name);
    std::vector<std::vector<std::string>> rows;
    for (std::string line; std::getline(in, line);) {
        std::vector<std::string> row;
        std::istringstream cells(line);
        for (std::string cell; !line.empty() && line[0] != '#' && std::getline(cells, cell, '\t');) {
            for (size_t at = cell.find('\\'); at != std::string::npos; at = cell.find('\\', at + 1)) {
                cell.replace(at, 2, cell[at + 1] == 't' ? "\t" : "\n");
            }
            row.push_back(cell);
        }
        if (!row.empty()) {
            rows.push_back(row);
        }
    }
    EXPECT_FALSE(rows.empty()) << name;
    return rows;
}
