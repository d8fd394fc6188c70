// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Golden values: the .json files under the folder that the environment variable NIMBRA_GOLDEN
// names, by default tests/data/golden.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace nimbra::test {

struct GoldenCase {
    std::filesystem::path path;
    nlohmann::json json;

    std::string name() const { return path.filename().string(); }
    /// One of several defensible answers: differences are printed and don't fail.
    bool ambiguous() const { return json.value("ambiguous", false); }
};

inline std::filesystem::path goldenFolder() {
    const char* folder = std::getenv("NIMBRA_GOLDEN");
    return folder && *folder ? folder : NIMBRA_TEST_DATA "/golden";
}

/// All cases of a type, by path. The project's own set must have some of every type that is asked.
inline std::vector<GoldenCase> goldenCases(const std::string& type) {
    std::vector<GoldenCase> cases;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(goldenFolder())) {
        if (entry.path().extension() != ".json")
            continue;
        std::ifstream file(entry.path());
        nlohmann::json json = nlohmann::json::parse(file, nullptr, false);
        if (json.is_object() && json.value("type", "") == type)
            cases.push_back({entry.path(), std::move(json)});
    }
    if (cases.empty() && !std::getenv("NIMBRA_GOLDEN"))
        ADD_FAILURE() << "no golden cases of type " << type << " in " << goldenFolder();
    std::sort(cases.begin(), cases.end(),
              [](const GoldenCase& a, const GoldenCase& b) { return a.path < b.path; });
    return cases;
}

/// |got - expected| <= abs + rel * |expected|
struct Tolerance {
    double abs = 0, rel = 0;

    Tolerance(double absolute, double relative) : abs(absolute), rel(relative) {}
    explicit Tolerance(const nlohmann::json& json, const std::string& prefix = "")
        : abs(json.at(prefix + "abs")), rel(json.at(prefix + "rel")) {}
    bool holds(double got, double expected) const {
        return std::fabs(got - expected) <= abs + rel * std::fabs(expected);
    }
};

/// Fails, or prints for an ambiguous case, unless the value is as expected.
inline void expectGolden(const GoldenCase& golden, const Tolerance& tolerance, double got,
                         double expected, const std::string& what) {
    if (tolerance.holds(got, expected))
        return;
    const std::string text = golden.name() + ": " + what + " is " + std::to_string(got) +
                             ", expected " + std::to_string(expected);
    if (golden.ambiguous())
        std::printf("[ ambiguous] %s\n", text.c_str());
    else
        ADD_FAILURE() << text;
}

}  // namespace nimbra::test
