// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/displacement.h"

#include <cmath>

namespace nimbra::host {

using TessUtils::Color;
using TessUtils::ProgressCallback;
using TessUtils::TextureContext;
using TessUtils::Transform;
using TessUtils::TriangleMesh;
using TessUtils::Vector;

namespace {

/// Calls back with the corners of each triangle whose corners exist.
template <class Use>
void forTriangles(const TriangleMesh& mesh, const Use& use) {
    const std::size_t count = mesh.positions.size();
    for (std::size_t i = 0; i + 2 < mesh.indices.size(); i += 3) {
        const std::uint32_t* corner = &mesh.indices[i];
        if (corner[0] < count && corner[1] < count && corner[2] < count)
            use(corner);
    }
}

/// Mean length of the edges at each point, in the world.
std::vector<float> edgeLengths(const TriangleMesh& mesh, const Transform& place) {
    std::vector<float> sums(mesh.positions.size());
    std::vector<int> counts(mesh.positions.size());
    forTriangles(mesh, [&](const std::uint32_t* corner) {
        for (int side = 0; side < 3; ++side) {
            const std::uint32_t a = corner[side], b = corner[(side + 1) % 3];
            const float edge = length(place.applyVector(mesh.positions[b] - mesh.positions[a]));
            for (const std::uint32_t end : {a, b}) {
                sums[end] += edge;
                ++counts[end];
            }
        }
    });
    for (std::size_t i = 0; i < sums.size(); ++i)
        sums[i] /= static_cast<float>(counts[i] > 0 ? counts[i] : 1);
    return sums;
}

/// Turns directions of the world into those of a mesh.
class ToObject {
public:
    explicit ToObject(const Transform& place)
        : rows_{cross(place.f[1], place.f[2]), cross(place.f[2], place.f[0]),
                cross(place.f[0], place.f[1])} {
        const float volume = dot(place.f[0], rows_[0]);
        scale_ = volume != 0 && std::isfinite(1 / volume) ? 1 / volume : 0;
    }
    Vector operator()(const Vector& v) const {
        return Vector{dot(rows_[0], v), dot(rows_[1], v), dot(rows_[2], v)} * scale_;
    }
    /// The normal in the world of one of the mesh.
    Vector worldNormal(const Vector& n) const {
        const Vector turned = rows_[0] * n.x + rows_[1] * n.y + rows_[2] * n.z;
        return normalize(scale_ < 0 ? -turned : turned);
    }

private:
    Vector rows_[3];  // of the inverse, times the volume
    float scale_;
};

Vector movement(const Displacement& displacement, const Color& color, const Vector& normal) {
    if (displacement.type == static_cast<int>(DisplacementType::Height))
        return normal * (color.r * displacement.amount);
    return Vector{2 * color.r - 1, 2 * color.g - 1, color.b} * displacement.amount;
}

}  // namespace

void smoothNormals(TriangleMesh& mesh) {
    mesh.normals.assign(mesh.positions.size(), Vector());
    forTriangles(mesh, [&](const std::uint32_t* corner) {
        const Vector& first = mesh.positions[corner[0]];
        const Vector area =
            cross(mesh.positions[corner[1]] - first, mesh.positions[corner[2]] - first);
        for (int i = 0; i < 3; ++i)
            mesh.normals[corner[i]] += area;
    });
    for (Vector& normal : mesh.normals)
        normal = normalize(normal);
}

TriangleMesh displaceMesh(const TriangleMesh& mesh, const Transform& place,
                          const Displacement& displacement, ProgressCallback* progress) {
    constexpr std::size_t kPollCount = 4096;
    TriangleMesh moved = mesh;
    if (moved.normals.size() != moved.positions.size())
        smoothNormals(moved);
    const std::vector<float> edges = edgeLengths(mesh, place);
    const ToObject toObject(place);
    TextureContext context;
    context.time = 0.5f;
    context.object = displacement.object;
    context.hasUVW = mesh.uvw.size() == mesh.positions.size();
    for (std::size_t i = 0; i < moved.positions.size(); ++i) {
        if (i % kPollCount == 0 && progress && progress->getAbort())
            break;
        context.position = place.applyPoint(toPoint(mesh.positions[i]));
        context.normal = toObject.worldNormal(moved.normals[i]);
        context.filterSize = 2 * edges[i];
        if (context.hasUVW)
            context.uvw = mesh.uvw[i];
        const Color color = displacement.texture->getTexColor(context).color;
        const Vector by = toObject(movement(displacement, color, context.normal));
        if (std::isfinite(by.x + by.y + by.z))
            moved.positions[i] += by;
    }
    smoothNormals(moved);
    return moved;
}

}  // namespace nimbra::host
