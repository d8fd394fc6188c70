// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/displacement.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "host/mesh_shapes.h"

namespace nimbra::host {
namespace {

using namespace TessUtils;

struct FunctionTexture final : TextureInterface {
    std::function<Color(const TextureContext&)> at;
    Plugin* getPlugin() override { return nullptr; }
    AColor getTexColor(const TextureContext& context) override { return {at(context), 1}; }
};

class DisplacementTest : public testing::Test {
protected:
    TriangleMesh displace(const TriangleMesh& mesh, const Transform& place, DisplacementType type) {
        return displaceMesh(mesh, place, {&texture_, static_cast<int>(type), amount_}, nullptr);
    }
    FunctionTexture texture_;
    float amount_ = 1;
};

TEST_F(DisplacementTest, Movement_IsThatOfTheWorldWhateverThePlace) {
    // Mirrored, turned, stretched and moved.
    Transform place;
    place.f[0] = {0, 2, 0};
    place.f[1] = {3, 0, 0};
    place.f[2] = {0, 0.5f, 4};
    place.offs = {10, 20, 30};
    texture_.at = [](const TextureContext& c) {
        const float x = static_cast<float>(c.position.x), z = static_cast<float>(c.position.z);
        return Color{0.5f + 0.1f * x, 0.25f, z - 30};
    };
    amount_ = 2;
    const TriangleMesh flat = boxMesh({1, 1, 1});
    const TriangleMesh moved = displace(flat, place, DisplacementType::Vector);
    for (std::size_t i = 0; i < flat.positions.size(); ++i) {
        const Vector from = toVector(place.applyPoint(toPoint(flat.positions[i])));
        const Vector to = toVector(place.applyPoint(toPoint(moved.positions[i])));
        EXPECT_NEAR(to.x - from.x, 0.4f * from.x, 1e-4f);
        EXPECT_NEAR(to.y - from.y, -1, 1e-4f);
        EXPECT_NEAR(to.z - from.z, 2 * (from.z - 30), 1e-4f);
    }
}

TEST_F(DisplacementTest, Height_GoesAlongTheNormalAndTiltsIt) {
    texture_.at = [](const TextureContext& c) {
        EXPECT_EQ(c.normal, (Vector{0, 1, 0}));
        return Color{static_cast<float>(c.position.x) * 0.5f, 9, 9};
    };
    const TriangleMesh flat = planeMesh({4, 1, 4}, 8);
    const TriangleMesh moved = displace(flat, {}, DisplacementType::Height);
    const Vector slope = normalize(Vector{-0.5f, 1, 0});
    for (std::size_t i = 0; i < flat.positions.size(); ++i) {
        EXPECT_FLOAT_EQ(moved.positions[i].x, flat.positions[i].x);
        EXPECT_FLOAT_EQ(moved.positions[i].y, flat.positions[i].x * 0.5f);
        EXPECT_NEAR(length(moved.normals[i] - slope), 0, 1e-5f);
    }
}

TEST_F(DisplacementTest, Question_HasTheFilterOfTheEdgesAndTheMiddleOfTheShutter) {
    Transform place;
    for (Vector& axis : place.f)
        axis = axis * 10;
    texture_.at = [](const TextureContext& c) {
        // Edges of 5 x 5 and 5 x sqrt(2), the share of the diagonals depending on the corner.
        EXPECT_GE(c.filterSize, 2 * 5.0f);
        EXPECT_LT(c.filterSize, 2 * 7.08f);
        EXPECT_EQ(c.time, 0.5f);
        EXPECT_TRUE(c.hasUVW);
        return Color{c.uvw.x > 0.9f ? NAN : 0.5f, 0.5f, c.uvw.x > 0.6f ? INFINITY : 0};
    };
    const TriangleMesh flat = planeMesh({2, 1, 2}, 4);
    const TriangleMesh moved = displace(flat, place, DisplacementType::Vector);
    EXPECT_EQ(moved.positions, flat.positions) << "what is not finite moves nothing";
    place.f[1] = place.f[0];
    EXPECT_EQ(displace(flat, place, DisplacementType::Vector).positions, flat.positions);
}

}  // namespace
}  // namespace nimbra::host
