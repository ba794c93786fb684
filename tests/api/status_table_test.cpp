// The status table against the README's table and against itself.
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "api/status.h"

namespace tintra3 {
namespace {

using Row = std::tuple<uint32_t, std::string, std::string, std::string>;  // code, layer, meaning, top level

// The rows of the table under "### Status codes", cells trimmed.
std::vector<Row> ReadmeRows() {
    std::ifstream in(TINTRA3_README);
    std::vector<Row> rows;
    std::string line;
    bool inSection = false;
    while (std::getline(in, line)) {
        if (line.rfind("### ", 0) == 0) inSection = line == "### Status codes";
        if (!inSection || line.rfind("| ", 0) != 0 || line.rfind("| code", 0) == 0) continue;
        std::vector<std::string> cells;
        std::stringstream cellStream(line.substr(1));
        std::string cell;
        while (std::getline(cellStream, cell, '|')) {
            const size_t first = cell.find_first_not_of(' ');
            const size_t last = cell.find_last_not_of(' ');
            cells.push_back(first == std::string::npos ? "" : cell.substr(first, last - first + 1));
        }
        if (cells.size() < 4) continue;
        rows.emplace_back(uint32_t(std::stoul(cells[0])), cells[1], cells[2], cells[3]);
    }
    return rows;
}

// What the README must say of a row: codes nothing produces are left out, and
// a top-level code has no further top-level code.
std::vector<Row> TableRows() {
    std::vector<Row> rows;
    for (const StatusRow& row : kStatusRows) {
        if (row.layer[0] == '\0') continue;
        const std::string top = IsTopLevelCode(row) ? "—" : std::to_string(row.topLevelCode);
        rows.emplace_back(row.code, row.layer, row.meaning, top);
    }
    return rows;
}

TEST(StatusTable, ReadmeListsExactlyTheCodesThatOccur) {
    const std::vector<Row> readme = ReadmeRows();
    ASSERT_FALSE(readme.empty()) << "no status table found in " << TINTRA3_README;
    EXPECT_EQ(readme, TableRows());
}

TEST(StatusTable, CodesAreUniqueAndMapToTopLevelCodes) {
    std::set<uint32_t> seen;
    for (const StatusRow& row : kStatusRows) {
        EXPECT_TRUE(seen.insert(row.code).second) << "code listed twice: " << row.code;
        const StatusRow* target = FindStatus(row.topLevelCode);
        ASSERT_NE(target, nullptr) << row.code << " maps to an unlisted code " << row.topLevelCode;
        // Success stays success; everything else lands on a code the top level reports itself.
        if (row.code != kOk) {
            EXPECT_TRUE(IsTopLevelCode(*target)) << row.code << " -> " << row.topLevelCode;
        }
    }
}

}  // namespace
}  // namespace tintra3
