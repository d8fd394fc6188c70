// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "host/displacement.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace nimbra::host
