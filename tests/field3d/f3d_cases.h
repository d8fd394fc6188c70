// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Real files with what they hold beside them: .f3d with .json, in the folder that the environment
// variable NIMBRA_F3D names, or else tests/data/f3d. The README there tells what the keys mean.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace nimbra::test {

struct F3dCase {
    std::string path;
    nlohmann::json json;
};

inline std::filesystem::path f3dFolder() {
    const char* const folder = std::getenv("NIMBRA_F3D");
    return folder ? std::filesystem::path(folder) : std::filesystem::path(NIMBRA_TEST_DATA) / "f3d";
}

inline std::vector<F3dCase> f3dCases() {
    std::vector<F3dCase> cases;
    for (const auto& entry : std::filesystem::directory_iterator(f3dFolder())) {
        std::filesystem::path path = entry.path();
        if (path.extension() != ".json")
            continue;
        std::ifstream in(path);
        F3dCase c{path.replace_extension(".f3d").string(), nlohmann::json::parse(in)};
        cases.push_back(std::move(c));
    }
    std::sort(cases.begin(), cases.end(),
              [](const F3dCase& a, const F3dCase& b) { return a.path < b.path; });
    return cases;
}

}  // namespace nimbra::test
