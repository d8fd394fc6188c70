// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "field3d/f3d_mapping.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "cache/bounded_reader.h"

namespace nimbra {

namespace {

using Matrix = std::array<double, 16>;  // row by row

constexpr Matrix kIdentity = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

struct TimeSample {
    double time = 0;
    Matrix matrix = kIdentity;
};

/// Linear between neighbours, the end samples beyond the ends, identity without any.
Matrix atTimeZero(std::vector<TimeSample> samples) {
    if (samples.empty())
        return kIdentity;
    std::stable_sort(samples.begin(), samples.end(),
                     [](const TimeSample& a, const TimeSample& b) { return a.time < b.time; });
    const auto after = std::find_if(samples.begin(), samples.end(),
                                    [](const TimeSample& s) { return s.time >= 0; });
    if (after == samples.begin() || after == samples.end())
        return after == samples.end() ? samples.back().matrix : samples.front().matrix;
    const TimeSample& before = *(after - 1);
    const double t = -before.time / (after->time - before.time);
    Matrix m;
    for (std::size_t i = 0; i < m.size(); ++i)
        m[i] = before.matrix[i] * (1 - t) + after->matrix[i] * t;
    return m;
}

/// False (and a problem) where the samples that are promised aren't there.
bool readSamples(const F3dGroup& group, std::vector<TimeSample>& samples, std::string& problem) {
    // Each sample is looked up by its name; real files have a few.
    constexpr std::int64_t kMostSamples = 1000;
    std::int64_t count = 0;
    if (group.integer("num_time_samples", count) && count > kMostSamples) {
        problem = fmt::format("has a matrix mapping of {} samples, too many", count);
        return false;
    }
    if (!group.integer("num_time_samples", count) || count < 0) {
        problem = "has a matrix mapping without a number of samples";
        return false;
    }
    for (std::int64_t i = 0; i < count; ++i) {
        TimeSample s;
        if (!group.numbers(fmt::format("time_{}", i), std::span(&s.time, 1)) ||
            !group.numbers(fmt::format("matrix_{}", i), s.matrix) || !std::isfinite(s.time)) {
            problem = fmt::format("has a matrix mapping of {} samples without sample {}", count, i);
            return false;
        }
        samples.push_back(s);
    }
    return true;
}

bool isFinite(const Matrix& m) {
    return std::all_of(m.begin(), m.end(), [](double v) { return std::isfinite(v); });
}

void readMatrix(const F3dGroup& group, F3dMapping& mapping) {
    std::vector<TimeSample> samples;
    TimeSample single;
    // The form of old files is tried first.
    if (group.numbers("MatrixFieldMapping data", single.matrix))
        samples.push_back(single);
    else if (!readSamples(group, samples, mapping.problem))
        return;
    mapping.timeSamples = static_cast<int>(samples.size());
    const Matrix m = atTimeZero(std::move(samples));
    if (!isFinite(m) || m[3] != 0 || m[7] != 0 || m[11] != 0 || m[15] != 1) {
        mapping.problem = "has a matrix mapping that is none of affine space";
        return;
    }
    for (std::size_t row = 0; row < 4; ++row)
        for (std::size_t column = 0; column < 3; ++column)
            mapping.localToWorld[row][column] = m[row * 4 + column];
}

}  // namespace

F3dMapping readMapping(const F3dGroup* group) {
    F3dMapping mapping;
    if (!group || !group->text("mapping_type", mapping.type)) {
        mapping.problem = "has no mapping";
        return mapping;
    }
    if (mapping.type == "MatrixFieldMapping")
        readMatrix(*group, mapping);
    else if (mapping.type == "FrustumFieldMapping")
        mapping.problem = "is mapped by a camera frustum, which can't become a grid";
    else if (mapping.type != "NullFieldMapping")
        mapping.problem = fmt::format("has an unknown mapping '{}'", printable(mapping.type));
    return mapping;
}

F3dAffine F3dMapping::voxelToWorld(const F3dBox& extents) const {
    // local = (voxel - low) / size
    F3dAffine out{};
    out[3] = localToWorld[3];
    for (int a = 0; a < 3; ++a) {
        const double size = static_cast<double>(extents.size(a));
        const double low = static_cast<double>(extents.low[a]);
        for (int x = 0; x < 3; ++x) {
            out[a][x] = localToWorld[a][x] / size;
            out[3][x] -= low * out[a][x];
        }
    }
    return out;
}

std::array<double, 3> transformed(const F3dAffine& m, const std::array<double, 3>& point) {
    std::array<double, 3> out = m[3];
    for (int a = 0; a < 3; ++a)
        for (int x = 0; x < 3; ++x)
            out[x] += point[a] * m[a][x];
    return out;
}

F3dAffine composed(const F3dAffine& first, const F3dAffine& second) {
    F3dAffine out;
    const std::array<double, 3> origin = second[3];
    for (int row = 0; row < 3; ++row) {
        out[row] = transformed(second, first[row]);
        for (int x = 0; x < 3; ++x)
            out[row][x] -= origin[x];
    }
    out[3] = transformed(second, first[3]);
    return out;
}

bool inverted(const F3dAffine& m, F3dAffine& out) {
    const auto cross = [](const std::array<double, 3>& a, const std::array<double, 3>& b) {
        return std::array<double, 3>{a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2],
                                     a[0] * b[1] - a[1] * b[0]};
    };
    // By cofactors: column i of the inverse is the cross product of the other rows.
    const std::array<double, 3> columns[3] = {cross(m[1], m[2]), cross(m[2], m[0]),
                                              cross(m[0], m[1])};
    const double determinant =
        m[0][0] * columns[0][0] + m[0][1] * columns[0][1] + m[0][2] * columns[0][2];
    if (!std::isnormal(determinant) || !std::isfinite(1 / determinant))
        return false;
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
            out[row][column] = columns[column][row] / determinant;
    out[3] = {0, 0, 0};
    const std::array<double, 3> moved = transformed(out, m[3]);
    for (int x = 0; x < 3; ++x)
        out[3][x] = -moved[x];
    for (const auto& row : out)
        for (const double v : row)
            if (!std::isfinite(v))
                return false;
    return true;
}

}  // namespace nimbra
