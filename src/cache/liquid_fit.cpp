// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The planes of voxels side by side. This source is compiled once for each instruction set.
#include "cache/liquid_fit.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "cache/liquid_fit.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace ParticlesToGrid::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;
using Floats = hn::CappedTag<float, kVoxels>;
using Ints = hn::RebindToSigned<Floats>;
using Vf = hn::Vec<Floats>;
using Mask = hn::Mask<Floats>;
constexpr Floats kF{};
constexpr Ints kI{};

/// Weights of a plane's next step, summed over a list. Without initialisers: the constructor that
/// these make isn't compiled for the instruction set.
struct Sums {
    Vf a, b;
};

/// With q the distance of each particle from the plane at t: a += (q + 0.5) / (q^2 + 0.0625),
/// b += 1 / (q^2 + 0.0625).
template <bool AllLanes>
HWY_INLINE void addRow(Sums& sums, const OffsetRow& row, int lane, const Vf (&u)[3],
                       const Vf (&ut)[3], const Mask& inList) {
    const Vf qx = hn::Mul(hn::Sub(hn::LoadU(kF, row.x + lane), ut[0]), u[0]);
    const Vf qy = hn::Mul(hn::Sub(hn::LoadU(kF, row.y + lane), ut[1]), u[1]);
    const Vf qz = hn::Mul(hn::Sub(hn::LoadU(kF, row.z + lane), ut[2]), u[2]);
    const Vf q = hn::Add(hn::Add(qx, qy), qz);
    Vf w = hn::Div(hn::Set(kF, 1.0f), hn::Add(hn::Mul(q, q), hn::Set(kF, 0.0625f)));
    Vf wq = hn::Mul(w, hn::Add(q, hn::Set(kF, 0.5f)));
    if constexpr (!AllLanes) {
        w = hn::IfThenElseZero(inList, w);
        wq = hn::IfThenElseZero(inList, wq);
    }
    sums.a = hn::Add(sums.a, wq);
    sums.b = hn::Add(sums.b, w);
}

/// t of the planes of the voxels from `lane` on; `shortest` and `longest` are those of their lists.
HWY_INLINE Vf fitLanes(const OffsetLists& lists, int lane, const Vf (&u)[3], Mask active,
                       std::int32_t shortest, std::int32_t longest) {
    constexpr int kMostSteps = 10;
    constexpr float kLastStep = 0.01f;
    const auto counts = hn::LoadU(kI, lists.counts() + lane);
    Vf t = hn::Zero(kF);
    for (int i = 0; i < kMostSteps && !hn::AllFalse(kF, active); ++i) {
        const Vf ut[3] = {hn::Mul(u[0], t), hn::Mul(u[1], t), hn::Mul(u[2], t)};
        Sums sums;
        sums.a = sums.b = hn::Zero(kF);
        std::int32_t m = 0;
        for (; m < shortest; ++m)
            addRow<true>(sums, lists.rows()[m], lane, u, ut, active);
        for (; m < longest; ++m)
            addRow<false>(sums, lists.rows()[m], lane, u, ut,
                          hn::RebindMask(kF, hn::Lt(hn::Set(kI, m), counts)));
        const Vf step = hn::Div(sums.a, sums.b);
        t = hn::IfThenElse(active, hn::Add(t, step), t);
        active = hn::And(active, hn::Not(hn::Lt(hn::Abs(step), hn::Set(kF, kLastStep))));
    }
    return t;
}

/// `units`: directions of the lists; lists without one are left out.
void fitPlanes(const OffsetLists& lists, const float (&units)[3][kVoxels],
               const float (&hasPlane)[kVoxels], float* t) {
    const int lanes = static_cast<int>(hn::Lanes(kF));
    for (int k = 0; k < kVoxels; k += lanes) {
        std::int32_t shortest = std::numeric_limits<std::int32_t>::max(), longest = 0;
        for (int v = k; v < k + lanes; ++v) {
            shortest = std::min(shortest, lists.count(v));
            longest = std::max(longest, hasPlane[v] != 0 ? lists.count(v) : 0);
        }
        const Vf u[3] = {hn::LoadU(kF, units[0] + k), hn::LoadU(kF, units[1] + k),
                         hn::LoadU(kF, units[2] + k)};
        const Mask active = hn::Ne(hn::LoadU(kF, hasPlane + k), hn::Zero(kF));
        hn::StoreU(fitLanes(lists, k, u, active, std::min(shortest, longest), longest), kF, t + k);
    }
}

}  // namespace ParticlesToGrid::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ParticlesToGrid {

HWY_EXPORT(fitPlanes);

void OffsetLists::clear() {
    std::fill_n(count_, kVoxels, 0);
    std::fill_n(sum_[0], 3 * kVoxels, 0.0f);
}

/// Keeps what is there when it can't.
bool OffsetLists::grow(std::int64_t room) {
    NMBUtils::NmbArray<OffsetRow, long long> larger;
    if (!larger.SetSize(room))
        return false;
    if (rows_.size > 0)
        std::memcpy(larger.data, rows_.data,
                    static_cast<std::size_t>(rows_.size) * sizeof *rows_.data);
    std::swap(rows_.data, larger.data);
    std::swap(rows_.size, larger.size);
    std::swap(rows_.capacity, larger.capacity);
    return true;
}

void OffsetLists::add(const float r[3]) {
    const float offset[3][2] = {{r[0], r[0] - 0.5f}, {r[1], r[1] - 0.5f}, {r[2], r[2] - 0.5f}};
    float square[3][2];
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 2; ++b)
            square[a][b] = offset[a][b] * offset[a][b];
    // What no voxel reaches.
    if (std::min(square[0][0], square[0][1]) > 1 || std::min(square[1][0], square[1][1]) > 1 ||
        std::min(square[2][0], square[2][1]) > 1)
        return;
    for (int k = 0; k < kVoxels; ++k) {
        const int bx = k & 1, by = k >> 1 & 1, bz = k >> 2;
        if (square[0][bx] + square[1][by] + square[2][bz] > 1)
            continue;
        const std::int64_t place = count_[k];
        if (place >= rows_.size &&
            (place == std::numeric_limits<std::int32_t>::max() || !grow(place * 5 / 4 + 8)))
            continue;
        OffsetRow& row = rows_[place];
        row.x[k] = offset[0][bx];
        row.y[k] = offset[1][by];
        row.z[k] = offset[2][bz];
        ++count_[k];
        sum_[0][k] -= offset[0][bx];
        sum_[1][k] -= offset[1][by];
        sum_[2][k] -= offset[2][bz];
    }
}

namespace {

/// Whether a particle of the list lies in the voxel's own cube.
bool hasParticleInCube(const OffsetLists& lists, int k) {
    const auto inside = [](float d) { return d >= 0 && d < 0.5f; };
    for (std::int32_t m = 0; m < lists.count(k); ++m) {
        const OffsetRow& row = lists.rows()[m];
        if (inside(row.x[k]) && inside(row.y[k]) && inside(row.z[k]))
            return true;
    }
    return false;
}

float valueOfOne(const OffsetRow& row, int k) {
    const float square = row.x[k] * row.x[k] + row.y[k] * row.y[k] + row.z[k] * row.z[k];
    return std::max(1 - std::sqrt(square), 0.0f);
}

}  // namespace

void surfaceValues(const OffsetLists& lists, float values[kVoxels]) {
    float units[3][kVoxels] = {}, hasPlane[kVoxels] = {}, t[kVoxels];
    bool anyPlane = false;
    for (int k = 0; k < kVoxels; ++k) {
        const float s[3] = {lists.sum(0)[k], lists.sum(1)[k], lists.sum(2)[k]};
        const float length = std::sqrt(s[0] * s[0] + s[1] * s[1] + s[2] * s[2]);
        const float largest = std::max({std::fabs(s[0]), std::fabs(s[1]), std::fabs(s[2])});
        constexpr float kNoDirection = 1e18f;
        values[k] = lists.count(k) == 0   ? 0
                    : lists.count(k) == 1 ? valueOfOne(*lists.rows(), k)
                                          : 1;
        if (lists.count(k) < 2 || largest >= length * kNoDirection)
            continue;
        hasPlane[k] = 1;
        anyPlane = true;
        for (int a = 0; a < 3; ++a)
            units[a][k] = s[a] / length;
    }
    if (!anyPlane)
        return;
    HWY_DYNAMIC_DISPATCH(fitPlanes)(lists, units, hasPlane, t);
    for (int k = 0; k < kVoxels; ++k) {
        if (hasPlane[k] == 0)
            continue;
        const float value = t[k] + 0.5f;
        if (value > 1)
            values[k] = 1;
        else
            values[k] = value < 0 && hasParticleInCube(lists, k) ? 0 : value;
    }
}

}  // namespace ParticlesToGrid
#endif
