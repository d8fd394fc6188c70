// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Golden values: .json files with the .npy arrays that they name, found under the folder that the
// environment variable NIMBRA_GOLDEN names, or else under tests/data/golden. What the files hold is
// told in the README there. A sound test walks all files of its kind, not a list of names:
//
//     for (const GoldenCase& golden : goldenCases("ramps")) {
//         SCOPED_TRACE(golden.name());
//         ...golden.json["expected"]... readNpy<float>(golden.file(golden.json["out"]))
//     }
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

namespace nimbra::test {

std::filesystem::path goldenFolder();

/// True where a case allows more than one answer: print the difference, don't fail.
bool isAmbiguous(const nlohmann::json& value);

/// One .json file.
struct GoldenCase {
    std::filesystem::path path;
    nlohmann::json json;

    bool ambiguous() const { return isAmbiguous(json); }
    /// Relative to the golden folder.
    std::string name() const;
    /// A file next to this one.
    std::filesystem::path file(const std::string& relative) const {
        return path.parent_path() / relative;
    }
};

/// Throws if it can't be parsed.
GoldenCase loadGolden(const std::filesystem::path& path);
/// The files whose "type" is this. The project's own set must have some of every type that is
/// asked.
std::vector<GoldenCase> goldenCases(const std::string& type);
/// The files whose name begins with `stem` ("kernels" finds kernels.json and kernels_2.json), for
/// files that state no type.
std::vector<GoldenCase> goldenNamed(const std::string& stem);
/// The files that lie in a folder of this name ("kol").
std::vector<GoldenCase> goldenInFolder(const std::string& folder);

/// A NumPy array, flattened so that the last index runs fastest: a grid [z][y][x] is x fastest.
template <class T>
struct NpyArray {
    std::vector<std::size_t> shape;
    std::vector<T> values;
};
/// Reads any array of integers or floats as T (float, double, int32, uint32, int64, uint8). Throws
/// std::runtime_error, the message naming the file.
template <class T>
NpyArray<T> readNpy(const std::filesystem::path& path);

// Numbers. "nan", "inf" and "-inf" stand as texts.
double numberOf(const nlohmann::json& value);
float floatOf(const nlohmann::json& value);
std::vector<float> floatsOf(const nlohmann::json& list);

// Bit patterns of float32: 8 hex digits.
float floatOfBits(const std::string& hex);
std::string bitsOf(float value);

/// |got - expected| <= abs + rel * |expected|; NaN equals NaN, an infinity equals itself.
struct Tolerance {
    double abs = 0;
    double rel = 0;

    Tolerance(double absolute, double relative) : abs(absolute), rel(relative) {}
    /// {"abs": a, "rel": r}, where the keys may have a prefix; or one number, which is absolute.
    explicit Tolerance(const nlohmann::json& json, const std::string& prefix = "");
    bool holds(double got, double expected) const;
};
/// Fails, or prints for an ambiguous case, unless the value is as expected.
void expectGolden(const GoldenCase& golden, const Tolerance& tolerance, double got, double expected,
                  const std::string& what);
/// The same for each element of a list; `got` is read by index.
template <class List>
void expectGoldens(const GoldenCase& golden, const Tolerance& tolerance, const List& got,
                   const nlohmann::json& expected, const std::string& what) {
    for (int i = 0; i < static_cast<int>(expected.size()); ++i)
        expectGolden(golden, tolerance, got[i], expected[i], what + ", " + std::to_string(i));
}
testing::AssertionResult isNear(double got, double expected, const Tolerance& tolerance);
/// Element by element; names the worst place. With a mask, only where it is 1.
testing::AssertionResult areNear(std::span<const float> got, std::span<const float> expected,
                                 const Tolerance& tolerance,
                                 std::span<const std::uint8_t> mask = {});

/// zlib's CRC-32, as 8 hex digits.
std::string crc32Of(std::span<const std::byte> bytes);

}  // namespace nimbra::test
