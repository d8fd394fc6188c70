// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "volume/grid_transforms.h"

#include <gtest/gtest.h>

#include <cmath>

namespace nimbra {
namespace {

using NMBUtils::Matrix34;
using TessUtils::Transform;
using TessUtils::Vector;

// Each matrix is rounded once: the one through object space doesn't take the rounding of a factor
// along.
TEST(GridTransforms, Products_AreRoundedOnce) {
    const float tenth = 0.1f;
    const Matrix34 objectToGrid{{{tenth, 0, 0}, {0, tenth, 0}, {0, 0, tenth}}, {1.7f, 0, 0}};
    const Transform node{{{tenth, 0, 0}, {0, tenth, 0}, {0, 0, tenth}}, {123456.789, 0, 0}};
    GridTransforms t;
    t.set(objectToGrid, node);
    EXPECT_EQ(t.worldFromGrid.axis[0].x, 1.0f);
    EXPECT_EQ(t.gridFromWorld.axis[0].x, 1.0f);
    EXPECT_EQ(t.worldFromGrid.offset.x, static_cast<float>(123456.789 - double(1.7f)));
    EXPECT_EQ(t.gridFromWorld.offset.x, static_cast<float>(double(1.7f) - 123456.789));
    EXPECT_EQ(t.objectFromWorld.offset.x, static_cast<float>(-123456.789 / double(tenth)));
}

TEST(GridTransforms, SingularPlace_StaysFinite) {
    Transform flat;
    flat.f[2] = {0, 0, 0};
    GridTransforms t;
    t.set(Matrix34(), flat);
    EXPECT_EQ(t.gridFromWorld.applyPoint(Vector{3, 4, 5}), Vector());
    t.set(Matrix34{{{INFINITY, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {}}, Transform());
    EXPECT_EQ(t.objectFromGrid.applyPoint(Vector{3, 4, 5}), Vector());
}

}  // namespace
}  // namespace nimbra
