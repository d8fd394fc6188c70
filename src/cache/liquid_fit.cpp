// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Particles side by side: which voxels they are near, and what they add to the voxels' planes. This
// source is compiled once for each instruction set.
#include "cache/liquid_fit.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "cache/liquid_fit.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace ParticlesToGrid::HWY_NAMESPACE {

namespace hn = hwy::HWY_NAMESPACE;
using Floats = hn::CappedTag<float, kGroup>;
using Vf = hn::Vec<Floats>;
using Mask = hn::Mask<Floats>;
constexpr Floats kF{};
constexpr int kLanes = static_cast<int>(hn::MaxLanes(kF));
/// Vectors of a group.
constexpr int kParts = kGroup / kLanes;

/// The lanes that lie in front of an end `left` places away.
HWY_INLINE Mask lanesBefore(std::int64_t left) {
    return hn::FirstN(kF, static_cast<std::size_t>(std::clamp<std::int64_t>(left, 0, kLanes)));
}

/// Sum of a group's lanes, from the first to the last.
HWY_INLINE float sumOfGroup(const Vf (&parts)[kParts]) {
    HWY_ALIGN float lanes[kGroup];
    for (int p = 0; p < kParts; ++p)
        hn::Store(parts[p], kF, lanes + p * kLanes);
    float sum = 0;
    for (float lane : lanes)
        sum += lane;
    return sum;
}

void addParticles(OffsetLists& lists, const float* const positions[3], std::int64_t particles,
                  const float corner[3], const float shift[3]) {
    const Vf half = hn::Set(kF, 0.5f), one = hn::Set(kF, 1.0f);
    for (std::int64_t i = 0; i < particles; i += kLanes) {
        // From the lower and from the upper voxel of each axis.
        Vf d[3][2], square[3][2];
        for (int a = 0; a < 3; ++a) {
            const Vf p = hn::Mul(hn::LoadU(kF, positions[a] + i), half);
            d[a][0] = hn::Add(hn::Sub(p, hn::Set(kF, corner[a])), hn::Set(kF, shift[a]));
            d[a][1] = hn::Sub(d[a][0], half);
            for (int b = 0; b < 2; ++b)
                square[a][b] = hn::Mul(d[a][b], d[a][b]);
        }
        const Mask there = lanesBefore(particles - i);
        for (int k = 0; k < kVoxels; ++k) {
            const int x = k & 1, y = k >> 1 & 1, z = k >> 2;
            const Vf length2 = hn::Add(hn::Add(square[0][x], square[1][y]), square[2][z]);
            const Mask near = hn::And(there, hn::Not(hn::Gt(length2, one)));
            if (hn::AllFalse(kF, near) || !lists.makeRoom(k))
                continue;
            OffsetLists::List& list = lists.listToFill(k);
            float* const end = list.store.data + list.count;
            // Whole vectors: some processors take a hundred cycles to compress into memory.
            hn::StoreU(hn::Compress(d[0][x], near), kF, end);
            hn::StoreU(hn::Compress(d[1][y], near), kF, end + list.room);
            hn::StoreU(hn::Compress(d[2][z], near), kF, end + 2 * list.room);
            list.count += static_cast<std::int64_t>(hn::CountTrue(kF, near));
        }
    }
}

/// s := minus the sum of a list: from the particles towards the voxel.
void sumList(const OffsetLists::List& list, float s[3]) {
    for (int a = 0; a < 3; ++a) {
        Vf sums[kParts];
        for (Vf& sum : sums)
            sum = hn::Zero(kF);
        for (std::int64_t m = 0; m < list.count; m += kGroup)
            for (int p = 0; p < kParts; ++p) {
                const std::int64_t at = m + p * kLanes;
                const Vf d = hn::LoadU(kF, list.axis(a) + at);
                sums[p] = hn::Sub(sums[p], hn::IfThenElseZero(lanesBefore(list.count - at), d));
            }
        s[a] = sumOfGroup(sums);
    }
}

/// A step of the plane at t: with q the distance of each particle from it, the mean of q + 0.5 by
/// the weights 1 / (q^2 + 0.0625).
HWY_INLINE float planeStep(const OffsetLists::List& list, const float u[3], float t) {
    const Vf ux = hn::Set(kF, u[0]), uy = hn::Set(kF, u[1]), uz = hn::Set(kF, u[2]);
    const Vf tx = hn::Set(kF, u[0] * t), ty = hn::Set(kF, u[1] * t), tz = hn::Set(kF, u[2] * t);
    const Vf one = hn::Set(kF, 1.0f), half = hn::Set(kF, 0.5f), limit = hn::Set(kF, 0.0625f);
    Vf a[kParts], b[kParts];
    for (int p = 0; p < kParts; ++p)
        a[p] = b[p] = hn::Zero(kF);
    const auto addPart = [&](std::int64_t at, int p, auto limited) HWY_ATTR {
        const Vf qx = hn::Mul(hn::Sub(hn::LoadU(kF, list.axis(0) + at), tx), ux);
        const Vf qy = hn::Mul(hn::Sub(hn::LoadU(kF, list.axis(1) + at), ty), uy);
        const Vf qz = hn::Mul(hn::Sub(hn::LoadU(kF, list.axis(2) + at), tz), uz);
        const Vf q = hn::Add(hn::Add(qx, qy), qz);
        Vf w = hn::Div(one, hn::Add(hn::Mul(q, q), limit));
        Vf wq = hn::Mul(w, hn::Add(q, half));
        if constexpr (decltype(limited)::value) {
            const Mask there = lanesBefore(list.count - at);
            w = hn::IfThenElseZero(there, w);
            wq = hn::IfThenElseZero(there, wq);
        }
        a[p] = hn::Add(a[p], wq);
        b[p] = hn::Add(b[p], w);
    };
    std::int64_t m = 0;
    for (; m + kGroup <= list.count; m += kGroup)
        for (int p = 0; p < kParts; ++p)
            addPart(m + p * kLanes, p, std::false_type());
    for (int p = 0; p < kParts; ++p)
        addPart(m + p * kLanes, p, std::true_type());
    return sumOfGroup(a) / sumOfGroup(b);
}

float fitPlane(const OffsetLists::List& list, const float u[3]) {
    constexpr int kMostSteps = 10;
    constexpr float kLastStep = 0.01f;
    float t = 0;
    for (int i = 0; i < kMostSteps; ++i) {
        const float step = planeStep(list, u, t);
        t += step;
        if (std::fabs(step) < kLastStep)
            break;
    }
    return t;
}

}  // namespace ParticlesToGrid::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace ParticlesToGrid {

HWY_EXPORT(addParticles);
HWY_EXPORT(sumList);
HWY_EXPORT(fitPlane);

OffsetLists::OffsetLists() {
    constexpr std::int64_t kFirstRoom = 200;
    for (int k = 0; k < kVoxels; ++k)
        grow(k, kFirstRoom + kSpare);
}

void OffsetLists::clear() {
    for (List& list : lists_)
        list.count = 0;
}

/// Keeps what is there when it can't. More particles than the limit don't lie near a voxel of any
/// real liquid, and each thread has eight lists.
bool OffsetLists::grow(int voxel, std::int64_t room) {
    constexpr std::int64_t kMostRoom = std::int64_t(1) << 22;
    List& list = lists_[voxel];
    if (room > kMostRoom)
        return false;
    NMBUtils::NmbArray<float, long long> larger;
    constexpr float kZero = 0;
    if (!larger.SetSize(3 * room, &kZero, true))
        return false;
    for (int a = 0; a < 3 && list.count > 0; ++a)
        std::memcpy(larger.data + a * room, list.axis(a),
                    static_cast<std::size_t>(list.count) * sizeof(float));
    std::swap(list.store.data, larger.data);
    std::swap(list.store.size, larger.size);
    std::swap(list.store.capacity, larger.capacity);
    list.room = room;
    return true;
}

void OffsetLists::add(const float* const positions[3], std::int64_t particles,
                      const float corner[3], const float shift[3]) {
    HWY_DYNAMIC_DISPATCH(addParticles)(*this, positions, particles, corner, shift);
}

namespace {

/// Whether a particle of the list lies in the voxel's own cube.
bool hasParticleInCube(const OffsetLists::List& list) {
    const auto inside = [](float d) { return d >= 0 && d < 0.5f; };
    for (std::int64_t m = 0; m < list.count; ++m)
        if (inside(list.axis(0)[m]) && inside(list.axis(1)[m]) && inside(list.axis(2)[m]))
            return true;
    return false;
}

float lengthOf(float x, float y, float z) {
    return std::sqrt(x * x + y * y + z * z);
}

float valueOf(const OffsetLists::List& list) {
    if (list.count == 0)
        return 0;
    if (list.count == 1)
        return std::max(1 - lengthOf(*list.axis(0), *list.axis(1), *list.axis(2)), 0.0f);
    float s[3];
    HWY_DYNAMIC_DISPATCH(sumList)(list, s);
    const float length = lengthOf(s[0], s[1], s[2]);
    const float largest = std::max({std::fabs(s[0]), std::fabs(s[1]), std::fabs(s[2])});
    constexpr float kNoDirection = 1e18f;
    if (largest >= length * kNoDirection)
        return 1;
    const float u[3] = {s[0] / length, s[1] / length, s[2] / length};
    const float value = HWY_DYNAMIC_DISPATCH(fitPlane)(list, u) + 0.5f;
    if (value > 1)
        return 1;
    return value < 0 && hasParticleInCube(list) ? 0 : value;
}

}  // namespace

void surfaceValues(const OffsetLists& lists, float values[kVoxels]) {
    for (int k = 0; k < kVoxels; ++k)
        values[k] = valueOf(lists.list(k));
}

}  // namespace ParticlesToGrid
#endif
