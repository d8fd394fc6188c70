// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "volume/qnd_tree.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <vector>

#include "volume/gizmo_split.h"
#include "volume/march.h"
#include "volume/volume_shader_tessra.h"

namespace nimbra {
namespace {

using NMBUtils::Matrix34;
using namespace TessUtils;

struct Random {
    std::mt19937 engine{42};
    float operator()(float low, float high) {
        return std::uniform_real_distribution<float>(low, high)(engine);
    }
    Vector vector(float low, float high) {
        return {(*this)(low, high), (*this)(low, high), (*this)(low, high)};
    }
};

/// Turned and stretched grids at random places; every fourth one moves.
struct Boxes {
    std::vector<std::unique_ptr<VolumeShaderTessra>> owned;
    std::vector<const VolumeShaderTessra*> shaders;

    Boxes(int count, float spread, Random& random) {
        const int size[3] = {4, 5, 6};
        for (int i = 0; i < count; ++i) {
            auto shader = std::make_unique<VolumeShaderTessra>();
            shader->flags &= ~kLightCache;
            shader->setGridSize(size);
            const Matrix34 turn{{random.vector(-1, 1), random.vector(-1, 1), random.vector(-1, 1)},
                                {}};
            const Vector place = random.vector(-spread, spread);
            shader->setTransforms(turn, {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, place}, false);
            if (i % 4 == 0)
                shader->setTransforms(
                    turn, {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, place + random.vector(-5, 5)}, true);
            shaders.push_back(shader.get());
            owned.push_back(std::move(shader));
        }
    }
};

std::vector<const VolumeShader*> bruteForce(const Boxes& boxes, const WorldRay& ray) {
    std::vector<const VolumeShader*> found;
    for (const VolumeShaderTessra* shader : boxes.shaders) {
        RayBlock block;
        if (enterGrid(block, *shader, ray))
            found.push_back(shader);
    }
    return found;
}

TEST(QndTree, FindsWhatTestingEachBoxFinds) {
    Random random;
    for (int count : {0, 1, 2, 11, 300, 1500}) {
        const Boxes boxes(count, 40, random);
        QndTree tree;
        EXPECT_FALSE(tree.isBuilt());
        tree.build(boxes.shaders);
        ASSERT_TRUE(tree.isBuilt());
        EXPECT_EQ(tree.primitiveCount(), unsigned(count));
        std::vector<VolumeShaderBBoxIntersectEntry> entries(std::size_t(count) + 1);
        std::size_t hits = 0;
        for (int i = 0; i < 200; ++i) {
            Vector dir = normalize(random.vector(-1, 1));
            if (i % 10 == 0)
                dir = {0, i % 20 ? 1.0f : -1.0f, 0};
            const WorldRay ray{toPoint(random.vector(-60, 60)), toPoint(dir),
                               i % 3 ? 1e18f : random(1, 50), random(0, 1)};
            const int found = tree.intersect(ray.origin, ray.dir, ray.length, ray.time,
                                             entries.data(), int(entries.size()));
            std::vector<const VolumeShader*> shaders;
            for (int k = 0; k < found; ++k)
                shaders.push_back(entries[std::size_t(k)].shader);
            EXPECT_EQ(shaders, bruteForce(boxes, ray)) << count << " boxes, ray " << i;
            hits += shaders.size();
        }
        EXPECT_TRUE(count < 300 || hits > 30) << hits;
    }
}

TEST(QndTree, EqualBoxes_StayInOrderAndTheTreeShallow) {
    std::vector<const VolumeShaderTessra*> same;
    VolumeShaderTessra shader;
    shader.flags &= ~kLightCache;
    const int size[3] = {4, 4, 4};
    shader.setGridSize(size);
    VolumeShaderTessra without;
    for (int i = 0; i < 64; ++i) {
        same.push_back(&shader);
        same.push_back(&without);
    }
    QndTree tree;
    tree.build(same);
    EXPECT_EQ(tree.primitiveCount(), 64u);
    EXPECT_LE(tree.depth(), 7u);
    std::vector<VolumeShaderBBoxIntersectEntry> entries(64);
    EXPECT_EQ(tree.intersect({2, 2, -5}, {0, 0, 1}, 100, 0, entries.data(), 64), 64);
    for (std::size_t i = 0; i < 64; ++i)
        EXPECT_EQ(entries[i].order, i);
    EXPECT_EQ(tree.intersect({2, 2, -5}, {0, 0, 1}, 100, 0, entries.data(), 10), 10);
    tree.clear();
    EXPECT_FALSE(tree.isBuilt());
    EXPECT_EQ(tree.intersect({2, 2, -5}, {0, 0, 1}, 100, 0, entries.data(), 64), 0);
}

}  // namespace
}  // namespace nimbra
