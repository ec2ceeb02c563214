// The samples of the formats that TagLib reads (data/formats/) and the
// properties that each gives (expected.tsv): source, key and value in UTF-8,
// in order.
#pragma once

#include <algorithm>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "support/Files.h"

namespace testsupport {

using PropertyRow = std::tuple<std::string, std::string, std::string>; // source, key, value

// expected.tsv: a sample's properties in order; "\n" and "\\" in a value stand for a line break and a backslash.
inline const std::map<std::string, std::vector<PropertyRow>>& expectedProperties()
{
    static const auto table = [] {
        std::map<std::string, std::vector<PropertyRow>> rows;
        std::istringstream lines(readFile(dataFile("formats/expected.tsv")));
        for (std::string line; std::getline(lines, line);) {
            if (line.empty() || line[0] == '#') continue;
            std::vector<std::string> f(1);
            for (size_t i = 0; i < line.size(); ++i) {
                if (line[i] == '\t') f.emplace_back();
                else if (line[i] == '\\' && i + 1 < line.size()) f.back() += line[++i] == 'n' ? '\n' : line[i];
                else f.back() += line[i];
            }
            if (f.size() == 4) rows[f[0]].emplace_back(f[1], f[2], f[3]);
            else ADD_FAILURE() << "expected.tsv: " << line;
        }
        return rows;
    }();
    return table;
}

inline const std::vector<PropertyRow>& expectedPropertiesOf(const std::string& sample)
{
    static const std::vector<PropertyRow> none;
    const auto found = expectedProperties().find(sample);
    return found == expectedProperties().end() ? none : found->second;
}

// Every file of data/formats/ but the script, its notes and the table.
inline std::vector<std::string> formatSampleNames()
{
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dataFile("formats")))
        if (e.path().extension() != ".sh" && e.path().extension() != ".md" && e.path().extension() != ".tsv")
            names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace testsupport
