// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "support/golden.h"

#include <zlib.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <limits>
#include <regex>
#include <sstream>
#include <stdexcept>

#include "support/temp_folder.h"

namespace nimbra::test {

namespace fs = std::filesystem;
using nlohmann::json;

fs::path goldenFolder() {
    const char* const folder = std::getenv("NIMBRA_GOLDEN");
    return folder && *folder ? fs::path(folder) : fs::path(NIMBRA_TEST_DATA) / "golden";
}

std::string GoldenCase::name() const {
    return fs::relative(path, goldenFolder()).string();
}

GoldenCase loadGolden(const fs::path& path) {
    std::ifstream file(path);
    try {
        return {path, json::parse(file)};
    } catch (const json::exception& error) {
        throw std::runtime_error(path.string() + ": " + error.what());
    }
}

namespace {

/// All .json files below the folder, sorted.
std::vector<fs::path> goldenFiles() {
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(goldenFolder())) {
        if (entry.is_regular_file() && entry.path().extension() == ".json")
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<GoldenCase> goldenWhere(const std::function<bool(const fs::path&)>& wanted) {
    std::vector<GoldenCase> cases;
    for (const fs::path& path : goldenFiles()) {
        if (wanted(path))
            cases.push_back(loadGolden(path));
    }
    return cases;
}

}  // namespace

std::vector<GoldenCase> goldenCases(const std::string& type) {
    std::vector<GoldenCase> cases = goldenWhere([](const fs::path&) { return true; });
    std::erase_if(cases, [&](const GoldenCase& golden) {
        return !golden.json.is_object() || golden.json.value("type", json()) != type;
    });
    if (cases.empty() && !std::getenv("NIMBRA_GOLDEN"))
        ADD_FAILURE() << "no golden cases of type " << type << " in " << goldenFolder();
    return cases;
}

std::vector<GoldenCase> goldenNamed(const std::string& stem) {
    return goldenWhere(
        [&](const fs::path& path) { return path.filename().string().starts_with(stem); });
}

std::vector<GoldenCase> goldenInFolder(const std::string& folder) {
    return goldenWhere(
        [&](const fs::path& path) { return path.parent_path().filename() == folder; });
}

bool isAmbiguous(const json& value) {
    return value.is_object() && value.contains("ambiguous") && value["ambiguous"] == true;
}

// --- NumPy arrays --------------------------------------------------------------------------------
// Bytes 0-5 "\x93NUMPY", 6 and 7 version 1.0, then the header's length (16 bits), the header as a
// Python dictionary, the values.

namespace {

[[noreturn]] void fail(const fs::path& path, const std::string& what) {
    throw std::runtime_error(path.string() + ": " + what);
}

struct NpyHeader {
    std::string type;  // as "<f4"
    bool columnMajor = false;
    std::vector<std::size_t> shape;
    std::size_t dataStart = 0;
};

NpyHeader parseHeader(const fs::path& path, const std::string& bytes) {
    static const std::regex layout(
        "^\\{'descr': '(...)', 'fortran_order': (True|False), 'shape': \\(([0-9, ]*)\\)");
    std::uint16_t length = 0;
    if (bytes.compare(0, 7, "\x93NUMPY\1") == 0 && bytes.size() > 10)
        std::memcpy(&length, bytes.data() + 8, sizeof length);
    const std::string text = bytes.substr(std::min<std::size_t>(10, bytes.size()), length);
    std::smatch found;
    if (!std::regex_search(text, found, layout))
        fail(path, "not a NumPy array of version 1");
    NpyHeader header{found[1], found[2] == "True", {}, 10u + length};
    std::istringstream shape(std::regex_replace(found[3].str(), std::regex(","), " "));
    for (std::size_t extent; shape >> extent;)
        header.shape.push_back(extent);
    return header;
}

template <class Stored, class T>
std::vector<T> convert(const fs::path& path, const std::string& bytes, const NpyHeader& header) {
    std::size_t count = 1;
    for (const std::size_t extent : header.shape)
        count *= extent;
    if (bytes.size() != header.dataStart + count * sizeof(Stored))
        fail(path, "holds another number of values than its shape says");
    std::vector<T> values(count);
    for (std::size_t i = 0; i < count; ++i) {
        Stored value;
        std::memcpy(&value, bytes.data() + header.dataStart + i * sizeof value, sizeof value);
        values[i] = static_cast<T>(value);
    }
    return values;
}

/// Reorders from first index fastest to last index fastest.
template <class T>
std::vector<T> rowMajor(const std::vector<T>& values, const std::vector<std::size_t>& shape) {
    std::vector<T> result(values.size());
    std::vector<std::size_t> place(shape.size(), 0);
    for (const T& value : values) {
        std::size_t flat = 0;
        for (std::size_t axis = 0; axis < shape.size(); ++axis)
            flat = flat * shape[axis] + place[axis];
        result[flat] = value;
        for (std::size_t axis = 0; axis < shape.size() && ++place[axis] == shape[axis]; ++axis)
            place[axis] = 0;
    }
    return result;
}

}  // namespace

template <class T>
NpyArray<T> readNpy(const fs::path& path) {
    using Convert = std::vector<T> (*)(const fs::path&, const std::string&, const NpyHeader&);
    static const std::pair<const char*, Convert> kTypes[] = {
        {"<f4", convert<float, T>},        {"<f8", convert<double, T>},
        {"<i4", convert<std::int32_t, T>}, {"<u4", convert<std::uint32_t, T>},
        {"<i8", convert<std::int64_t, T>}, {"<u8", convert<std::uint64_t, T>},
        {"|u1", convert<std::uint8_t, T>}, {"|b1", convert<std::uint8_t, T>}};
    const std::string bytes = readFile(path);
    const NpyHeader header = parseHeader(path, bytes);
    for (const auto& [type, convertValues] : kTypes) {
        if (header.type != type)
            continue;
        NpyArray<T> array{header.shape, convertValues(path, bytes, header)};
        if (header.columnMajor)
            array.values = rowMajor(array.values, array.shape);
        return array;
    }
    fail(path, "values of type " + header.type);
}

template NpyArray<float> readNpy(const fs::path&);
template NpyArray<double> readNpy(const fs::path&);
template NpyArray<std::int32_t> readNpy(const fs::path&);
template NpyArray<std::uint32_t> readNpy(const fs::path&);
template NpyArray<std::int64_t> readNpy(const fs::path&);
template NpyArray<std::uint8_t> readNpy(const fs::path&);

// --- Numbers -------------------------------------------------------------------------------------

double numberOf(const json& value) {
    if (!value.is_string())
        return value.get<double>();
    const auto text = value.get<std::string>();
    if (text == "nan")
        return std::numeric_limits<double>::quiet_NaN();
    if (text == "inf" || text == "-inf")
        return text[0] == '-' ? -INFINITY : INFINITY;
    throw std::runtime_error("no number: " + text);
}

float floatOf(const json& value) {
    return static_cast<float>(numberOf(value));
}

std::vector<float> floatsOf(const json& list) {
    std::vector<float> values;
    for (const json& value : list)
        values.push_back(floatOf(value));
    return values;
}

float floatOfBits(const std::string& hex) {
    std::size_t used = 0;
    const unsigned long bits = std::stoul(hex, &used, 16);
    if (hex.size() != 8 || used != 8)
        throw std::runtime_error("no bit pattern of a float: " + hex);
    return std::bit_cast<float>(static_cast<std::uint32_t>(bits));
}

std::string bitsOf(float value) {
    char hex[9];
    std::snprintf(hex, sizeof hex, "%08x", std::bit_cast<std::uint32_t>(value));
    return hex;
}

Tolerance::Tolerance(const json& value, const std::string& prefix)
    : abs(value.is_number() ? value.get<double>() : value.value(prefix + "abs", 0.0)),
      rel(value.is_number() ? 0 : value.value(prefix + "rel", 0.0)) {}

bool Tolerance::holds(double got, double expected) const {
    if (std::isnan(expected) || std::isnan(got))
        return std::isnan(expected) && std::isnan(got);
    if (std::isinf(expected) || std::isinf(got))
        return got == expected;
    return std::fabs(got - expected) <= abs + rel * std::fabs(expected);
}

testing::AssertionResult isNear(double got, double expected, const Tolerance& tolerance) {
    if (tolerance.holds(got, expected))
        return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << "got " << got << ", expected " << expected << " within " << tolerance.abs << " + "
           << tolerance.rel << " * |expected|";
}

void expectGolden(const GoldenCase& golden, const Tolerance& tolerance, double got, double expected,
                  const std::string& what) {
    const testing::AssertionResult result = isNear(got, expected, tolerance);
    if (result)
        return;
    if (golden.ambiguous())
        std::printf("[ ambiguous] %s: %s: %s\n", golden.name().c_str(), what.c_str(),
                    result.message());
    else
        ADD_FAILURE() << golden.name() << ": " << what << ": " << result.message();
}

testing::AssertionResult areNear(std::span<const float> got, std::span<const float> expected,
                                 const Tolerance& tolerance, std::span<const std::uint8_t> mask) {
    if (got.size() != expected.size())
        return testing::AssertionFailure() << got.size() << " values, expected " << expected.size();
    if (!mask.empty() && mask.size() != expected.size())
        return testing::AssertionFailure() << "a mask of " << mask.size() << " values";
    std::size_t wrong = 0;
    std::size_t worst = 0;
    double worstError = -1;
    for (std::size_t i = 0; i < got.size(); ++i) {
        if ((!mask.empty() && mask[i] != 1) || tolerance.holds(got[i], expected[i]))
            continue;
        ++wrong;
        const double error = std::fabs(double(got[i]) - expected[i]);
        if (!(error <= worstError)) {
            worst = i;
            worstError = error;
        }
    }
    if (wrong == 0)
        return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << wrong << " of " << got.size() << " differ, most at " << worst << ": got "
           << got[worst] << ", expected " << expected[worst];
}

std::string crc32Of(std::span<const std::byte> bytes) {
    const uLong crc = ::crc32_z(0, reinterpret_cast<const Bytef*>(bytes.data()), bytes.size());
    char hex[9];
    std::snprintf(hex, sizeof hex, "%08lx", crc);
    return hex;
}

}  // namespace nimbra::test
