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

std::unique_ptr<VolumeShaderTessra> makeGrid(int nx, int ny, int nz) {
    auto shader = std::make_unique<VolumeShaderTessra>();
    shader->flags &= ~kLightCache;
    const int size[3] = {nx, ny, nz};
    shader->setGridSize(size);
    return shader;
}

/// Turned and stretched grids at random places; every fourth one moves.
struct Boxes {
    std::vector<std::unique_ptr<VolumeShaderTessra>> owned;
    std::vector<const VolumeShaderTessra*> shaders;

    Boxes(int count, float spread, Random& random) {
        for (int i = 0; i < count; ++i) {
            const Matrix34 turn{{random.vector(-1, 1), random.vector(-1, 1), random.vector(-1, 1)},
                                {}};
            Matrix34 place;
            place.offset = random.vector(-spread, spread);
            shaders.push_back(owned.emplace_back(makeGrid(4, 5, 6)).get());
            owned.back()->setTransforms(turn, place, false);
            place.offset = place.offset + random.vector(-5, 5);
            if (i % 4 == 0)
                owned.back()->setTransforms(turn, place, true);
        }
    }
    std::vector<const VolumeShader*> bruteForce(const WorldRay& ray) const {
        std::vector<const VolumeShader*> found;
        RayBlock block;
        for (const VolumeShaderTessra* shader : shaders)
            if (enterGrid(block, *shader, ray))
                found.push_back(shader);
        return found;
    }
};

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
            EXPECT_EQ(shaders, boxes.bruteForce(ray)) << count << " boxes, ray " << i;
            hits += shaders.size();
        }
        EXPECT_TRUE(count < 300 || hits > 30) << hits;
    }
}

TEST(QndTree, EqualBoxes_StayInOrderAndTheTreeShallow) {
    std::vector<const VolumeShaderTessra*> same;
    const auto grid = makeGrid(4, 4, 4), without = std::make_unique<VolumeShaderTessra>();
    for (int i = 0; i < 64; ++i)
        same.insert(same.end(), {grid.get(), without.get()});
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
