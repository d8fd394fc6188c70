// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Where the fields of a partition lie in the world. Matrices act on row vectors, as in the file:
// p' = p * M, the translation in the last row. Continuous voxel coordinates: voxel i reaches from i
// to i + 1, its centre lies at i + 0.5.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "field3d/f3d_tree.h"

namespace nimbra {

/// Integer box, both ends inclusive.
struct F3dBox {
    std::array<std::int64_t, 3> low{0, 0, 0}, high{-1, -1, -1};

    std::int64_t size(int axis) const { return high[axis] - low[axis] + 1; }
    bool operator==(const F3dBox&) const = default;
};

/// Three axis vectors and the place of the origin: p' = p.x * row 0 + p.y * row 1 + p.z * row 2 +
/// row 3.
using F3dAffine = std::array<std::array<double, 3>, 4>;

struct F3dMapping {
    /// "MatrixFieldMapping", "NullFieldMapping", "FrustumFieldMapping", or what the file says.
    std::string type;
    /// Why no box can be placed by it; empty if one can.
    std::string problem;
    /// The unit cube, which stands for the extents, to the world, at time 0.
    F3dAffine localToWorld{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}};
    int timeSamples = 0;

    F3dAffine voxelToWorld(const F3dBox& extents) const;
};

/// Reads the group "mapping" of a partition, null where there is none.
F3dMapping readMapping(const F3dGroup* group);

/// First `first`, then `second`.
F3dAffine composed(const F3dAffine& first, const F3dAffine& second);
std::array<double, 3> transformed(const F3dAffine& m, const std::array<double, 3>& point);
/// False for a matrix without an inverse.
bool inverted(const F3dAffine& m, F3dAffine& out);

}  // namespace nimbra
