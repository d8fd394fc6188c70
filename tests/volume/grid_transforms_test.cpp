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
    Transform node;
    node.f[0] = {tenth, 0, 0};
    node.f[1] = {0, tenth, 0};
    node.f[2] = {0, 0, tenth};
    node.offs = {123456.789, 0, 0};
    GridTransforms t;
    t.set(objectToGrid, node);
    const double exact = double(tenth);
    EXPECT_EQ(t.worldFromGrid.axis[0].x, 1.0f);
    EXPECT_EQ(t.gridFromWorld.axis[0].x, 1.0f);
    EXPECT_EQ(t.worldFromGrid.offset.x, static_cast<float>(123456.789 - double(1.7f)));
    EXPECT_EQ(t.gridFromWorld.offset.x, static_cast<float>(double(1.7f) - 123456.789));
    EXPECT_EQ(t.objectFromWorld.offset.x, static_cast<float>(-123456.789 / exact));
}

TEST(GridTransforms, SingularPlace_StaysFinite) {
    Transform flat;
    flat.f[2] = {0, 0, 0};
    GridTransforms t;
    t.set(Matrix34(), flat);
    const Vector image = t.gridFromWorld.applyPoint(Vector{3, 4, 5});
    EXPECT_EQ(image, Vector());
    t.set(Matrix34{{{INFINITY, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {}}, Transform());
    EXPECT_EQ(t.objectFromGrid.applyPoint(Vector{3, 4, 5}), Vector());
}

}  // namespace
}  // namespace nimbra
