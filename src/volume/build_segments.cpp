// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Finds the volumes that a ray meets and cuts the ray into segments.
#include <emmintrin.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>
#include <new>

#include "volume/gizmo_split.h"
#include "volume/march.h"

namespace nimbra {

using NMBUtils::Matrix34;
using TessUtils::TracePoint;

namespace {

/// Up to here the answers of the tree fit on the stack.
constexpr int kStackEntries = 1024;

/// x, y, z, 0
__m128 lanesOf(const TessUtils::Vector& v) {
    const __m128 xy = _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(&v.x)));
    return _mm_movelh_ps(xy, _mm_load_ss(&v.z));
}

void store(TessUtils::Vector& v, __m128 lanes) {
    _mm_storel_pi(reinterpret_cast<__m64*>(&v.x), lanes);
    _mm_store_ss(&v.z, _mm_movehl_ps(lanes, lanes));
}

/// Matrix34::applyPoint and applyVector of the world's points, rounded once.
class GridSpace {
public:
    explicit GridSpace(const Matrix34& m) {
        for (int i = 0; i < 3; ++i)
            set(m.axis[i], xy_[i], z_[i]);
        set(m.offset, xy_[3], z_[3]);
    }
    __m128 vector(const TracePoint& v) const { return rounded(sum(xy_, v), sum(z_, v)); }
    __m128 point(const TracePoint& p) const {
        return rounded(_mm_add_pd(sum(xy_, p), xy_[3]), _mm_add_pd(sum(z_, p), z_[3]));
    }

private:
    static void set(const TessUtils::Vector& v, __m128d& xy, __m128d& z) {
        const __m128 lanes = lanesOf(v);
        xy = _mm_cvtps_pd(lanes);
        z = _mm_cvtps_pd(_mm_movehl_ps(lanes, lanes));
    }
    static __m128d sum(const __m128d m[4], const TracePoint& v) {
        const __m128d x = _mm_mul_pd(m[0], _mm_set1_pd(v.x));
        const __m128d y = _mm_mul_pd(m[1], _mm_set1_pd(v.y));
        return _mm_add_pd(_mm_add_pd(x, y), _mm_mul_pd(m[2], _mm_set1_pd(v.z)));
    }
    static __m128 rounded(__m128d xy, __m128d z) {
        return _mm_movelh_ps(_mm_cvtpd_ps(xy), _mm_cvtpd_ps(z));
    }

    __m128d xy_[4], z_[4];
};

/// A ray in the grid space of a shader, and its span there.
class GridRay {
public:
    GridRay(const Matrix34& gridFromWorld, const WorldRay& world) : maxt_(world.length) {
        const GridSpace grid(gridFromWorld);
        origin_ = grid.point(world.origin);
        dir_ = grid.vector(world.dir);
        // Kept finite for an axis that the ray runs across; the order of the operands keeps a NaN.
        const __m128 limit = _mm_set1_ps(1e18f), least = _mm_set1_ps(-1e18f);
        inverse_ = _mm_max_ps(least, _mm_min_ps(limit, _mm_div_ps(_mm_set1_ps(1.0f), dir_)));
    }

    /// False in a grid without extent.
    bool isUsable() const {
        const __m128 squares = _mm_mul_ps(dir_, dir_);
        const float squared = squares[0] + squares[1] + squares[2];
        return squared > 0.0f && std::isfinite(squared);
    }

    /// Slab test; cuts the ray to the box. T. Kay, J. Kajiya, SIGGRAPH 1986.
    bool cutToBox(const TessUtils::Vector& low, const TessUtils::Vector& high) {
        const __m128 toLow = _mm_mul_ps(_mm_sub_ps(lanesOf(low), origin_), inverse_);
        const __m128 toHigh = _mm_mul_ps(_mm_sub_ps(lanesOf(high), origin_), inverse_);
        const __m128 negative = _mm_castsi128_ps(_mm_srai_epi32(_mm_castps_si128(inverse_), 31));
        const __m128 entry =
            _mm_or_ps(_mm_and_ps(negative, toHigh), _mm_andnot_ps(negative, toLow));
        const __m128 exit = _mm_or_ps(_mm_and_ps(negative, toLow), _mm_andnot_ps(negative, toHigh));
        for (int axis = 0; axis < 3; ++axis) {
            mint_ = entry[axis] > mint_ ? entry[axis] : mint_;
            maxt_ = exit[axis] < maxt_ ? exit[axis] : maxt_;
        }
        return mint_ <= maxt_ * 1.000001f && maxt_ - mint_ >= 1e-6f;
    }

    void storeIn(RayBlock& ray) const {
        store(ray.origin, origin_);
        store(ray.dir, dir_);
        store(ray.invDir, inverse_);
        ray.signMask = static_cast<std::uint32_t>(_mm_movemask_ps(inverse_)) & 7;
        ray.mint = mint_;
        ray.maxt = maxt_;
    }

private:
    __m128 origin_, dir_, inverse_;
    float mint_ = 0, maxt_;
};

bool enterGrid(RayBlock& ray, const VolumeShader& shader, const Matrix34& gridFromWorld,
               const WorldRay& world) {
    GridRay inGrid(gridFromWorld, world);
    if (!inGrid.isUsable() || !inGrid.cutToBox(shader.gridMin, shader.gridMax))
        return false;
    inGrid.storeIn(ray);
    return true;
}

bool takesPart(const RayData& rayData, const VolumeShader& shader) {
    if (!rayData.wantColor && (shader.visibility & kNoShadow) != 0)
        return false;
    return (shader.visibility & rayData.illuminator->exclusionMask) == 0;
}

/// Adds the segments of rayData.shader, whose box rayData.ray is cut to.
void addShader(RayData& rayData, const WorldRay& world) {
    const VolumeShader& shader = *rayData.shader;
    Illuminator& illuminator = *rayData.illuminator;
    if (!takesPart(rayData, shader))
        return;
    illuminator.selectShader(shader);
    if ((illuminator.kind & kKindOwnShader) != 0)
        rayData.selfRay = true;
    const bool onlyGI = (illuminator.kind & (kKindGI | kKindAlwaysVisible)) == kKindGI;
    if (onlyGI && (shader.visibility & kVisibleInGI) == 0)
        return;
    if (shader.gizmo)
        splitByGizmo(rayData, world);
    else
        addSegment(rayData);
}

void addEachShader(RayData& rayData, const ShadeQuery& query, const WorldRay& world) {
    for (int i = 0; i < query.count; ++i) {
        rayData.shader = query.shaders[i];
        if (enterGrid(rayData.ray, *rayData.shader, world))
            addShader(rayData, world);
    }
}

[[gnu::noinline]] void addFromTree(RayData& rayData, const ShadeQuery& query,
                                   const WorldRay& world) {
    using Entry = VolumeShaderBBoxIntersectEntry;
    // Plain bytes: clearing the entries would take longer than the ray does.
    alignas(Entry) std::byte onStack[kStackEntries * sizeof(Entry)];
    std::unique_ptr<std::byte[]> onHeap;
    std::byte* bytes = onStack;
    if (query.count > kStackEntries) {
        onHeap.reset(new (std::nothrow) std::byte[query.count * sizeof(Entry)]);
        if (!onHeap)
            return addEachShader(rayData, query, world);
        bytes = onHeap.get();
    }
    Entry* const entries = reinterpret_cast<Entry*>(bytes);
    const int found = rayData.tree->intersect(world.origin, world.dir, world.length, query.time,
                                              entries, query.count);
    for (int i = 0; i < found; ++i) {
        rayData.shader = entries[i].shader;
        rayData.ray = entries[i].ray;
        addShader(rayData, world);
    }
}

}  // namespace

bool enterGrid(RayBlock& ray, const VolumeShader& shader, const WorldRay& world) {
    return shader.moving ? enterGrid(ray, shader, shader.gridFromWorldAt(world.time), world)
                         : enterGrid(ray, shader, shader.gridFromWorld[0], world);
}

void addSegment(RayData& rayData) {
    RaySegment* segment = rayData.pool.take();
    if (!segment)
        return;
    ++rayData.segmentCount;
    const VolumeShader& shader = *rayData.shader;
    const std::uint32_t kind = rayData.illuminator->kind;
    // Past its bounce limit a volume still blocks light, but gives no colour.
    const bool colored =
        rayData.wantColor &&
        ((kind & kKindDiffuse) == 0 || (kind & kKindAlwaysVisible) != 0 ||
         ((shader.visibility & kVisibleInGI) != 0 && rayData.bounceLevel <= shader.bounces));
    initSegment(*segment, rayData.ray, shader, colored);
    if (rayData.probabilistic)
        segment->state |= kSegmentProbabilistic;

    RaySegment** place = &rayData.head;
    if (rayData.wantColor) {
        while (*place && (*place)->tCur <= segment->tCur)
            place = &(*place)->next;
    }
    segment->next = *place;
    *place = segment;
    rayData.gmaxt = std::max(rayData.gmaxt, segment->tEnd);
}

bool BuildSegments(RayData& rayData, const ShadeQuery& query) {
    const TracePoint d = query.rayEnd - query.rayStart;
    const double squared = d.x * d.x + d.y * d.y + d.z * d.z;
    if (!(squared >= 1e-12) || !std::isfinite(squared))
        return true;
    const double worldLength = std::sqrt(squared);
    const WorldRay world{query.rayStart, d * (1.0 / worldLength), static_cast<float>(worldLength),
                         query.time};
    if (rayData.tree && query.count >= kTreeThreshold && rayData.tree->isBuilt())
        addFromTree(rayData, query, world);
    else
        addEachShader(rayData, query, world);
    return rayData.segmentCount == 0;
}

}  // namespace nimbra
