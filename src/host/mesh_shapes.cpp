// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/mesh_shapes.h"

#include <algorithm>
#include <cmath>

#include "host/sampling.h"

namespace nimbra::host {

using TessUtils::TriangleMesh;
using TessUtils::Vector;

namespace {

/// A parallelogram with corners origin, origin + a, origin + a + b, origin + b, facing a x b.
void addQuad(TriangleMesh& mesh, const Vector& origin, const Vector& a, const Vector& b) {
    const auto first = static_cast<std::uint32_t>(mesh.positions.size());
    for (const Vector& corner : {origin, origin + a, origin + a + b, origin + b})
        mesh.positions.push_back(corner);
    for (const Vector& uvw : {Vector{0, 0, 0}, Vector{1, 0, 0}, Vector{1, 1, 0}, Vector{0, 1, 0}})
        mesh.uvw.push_back(uvw);
    for (const std::uint32_t corner : {0U, 1U, 2U, 0U, 2U, 3U})
        mesh.indices.push_back(first + corner);
}

}  // namespace

TriangleMesh planeMesh(const Vector& size, int cells) {
    TriangleMesh mesh;
    const auto pieces = static_cast<std::uint32_t>(std::clamp(cells, 1, kMostCells));
    const std::size_t row = pieces + 1;
    mesh.positions.reserve(row * row);
    mesh.uvw.reserve(row * row);
    mesh.indices.reserve(std::size_t{6} * pieces * pieces);
    for (std::uint32_t j = 0; j <= pieces; ++j)
        for (std::uint32_t i = 0; i <= pieces; ++i) {
            const Vector uvw{float(i) / float(pieces), float(j) / float(pieces), 0};
            mesh.positions.push_back({size.x * (uvw.x - 0.5f), 0, size.z * (0.5f - uvw.y)});
            mesh.uvw.push_back(uvw);
        }
    for (std::uint32_t j = 0; j < pieces; ++j)
        for (std::uint32_t i = 0; i < pieces; ++i) {
            const std::uint32_t a = j * (pieces + 1) + i, b = a + pieces + 1;
            mesh.indices.insert(mesh.indices.end(), {a, a + 1, b + 1, a, b + 1, b});
        }
    return mesh;
}

TriangleMesh boxMesh(const Vector& size) {
    TriangleMesh mesh;
    const Vector low{-size.x / 2, -size.y / 2, -size.z / 2}, high = -low;
    const Vector x{size.x, 0, 0}, y{0, size.y, 0}, z{0, 0, size.z};
    addQuad(mesh, low, y, x);
    addQuad(mesh, low, z, y);
    addQuad(mesh, low, x, z);
    addQuad(mesh, high, -x, -y);
    addQuad(mesh, high, -y, -z);
    addQuad(mesh, high, -z, -x);
    return mesh;
}

TriangleMesh sphereMesh(const Vector& size, int segments) {
    TriangleMesh mesh;
    const int around = std::max(segments, 8), down = std::max(around / 2, 4);
    for (int i = 0; i <= down; ++i) {
        const float polar = kPi * i / down;
        for (int j = 0; j <= around; ++j) {
            const float turn = 2 * kPi * j / around;
            const Vector n{std::sin(polar) * std::cos(turn), std::cos(polar),
                           -std::sin(polar) * std::sin(turn)};
            mesh.positions.push_back({n.x * size.x / 2, n.y * size.y / 2, n.z * size.z / 2});
            mesh.normals.push_back(TessUtils::normalize(
                {n.x * size.y * size.z, n.y * size.x * size.z, n.z * size.x * size.y}));
            mesh.uvw.push_back({float(j) / around, 1 - float(i) / down, 0});
        }
    }
    const auto row = static_cast<std::uint32_t>(around + 1);
    for (std::uint32_t i = 0; i < static_cast<std::uint32_t>(down); ++i)
        for (std::uint32_t j = 0; j + 1 < row; ++j) {
            const std::uint32_t a = i * row + j, b = a + row;
            if (i > 0)
                mesh.indices.insert(mesh.indices.end(), {a, b, a + 1});
            if (i + 1 < static_cast<std::uint32_t>(down))
                mesh.indices.insert(mesh.indices.end(), {a + 1, b, b + 1});
        }
    return mesh;
}

}  // namespace nimbra::host
