// Case files (tests/corpus/cases/*.tsv): one case a line, fields separated by tabs, lines that
// start with '#' are comments. In a field, \t \n \r \v \b \\ and \xHH stand for their bytes and
// \{N*C} for N copies of the character C, so that long or binary texts stay one readable row.
#pragma once

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "test_env.h"

namespace tola_test {

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

// The rows of a case file, each with exactly `fields` fields (empty fields included).
inline std::vector<std::vector<std::string>> readCases(const std::string& name, size_t fields) {
    std::istringstream in(readWholeFile(std::string(TOLA_SOURCE_DIR) + "/tests/corpus/cases/" + name));
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
        row.resize(std::max(row.size(), fields));  // trailing empty fields
        EXPECT_EQ(row.size(), fields) << name << ": " << line;
        rows.push_back(row);
    }
    EXPECT_FALSE(rows.empty()) << name;
    return rows;
}

}  // namespace tola_test
