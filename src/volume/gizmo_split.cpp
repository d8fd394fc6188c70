// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Cuts a ray by the cutter of a shader.
#include "volume/gizmo_split.h"

#include <algorithm>

#include "foundation/log.h"
#include "volume/gizmo_object.h"
#include "volume/volume_shader.h"

namespace nimbra {

using NMBUtils::logLine;

namespace {

constexpr int kReportedRounds = 9991;
constexpr int kMaxRounds = 10000;
constexpr float kNoLimit = 1e18f;

/// The walk from hit to hit. Its ray starts one unit before the segment's, so that a hit at the
/// very start is found; parameters here are larger by that unit.
class GizmoWalk {
public:
    GizmoWalk(RayData& data, const WorldRay& world)
        : rayData(data),
          gizmo(*data.shader->gizmo),
          inverted(data.shader->has(kInvertGizmo)),
          start(data.ray.mint + 1.0f),
          end(data.ray.maxt + 1.0f),
          inside(inverted ? 2 : 0) {
        const VolumeShader& shader = *data.shader;
        const NMBUtils::Matrix34 gizmoFromWorld =
            shader.gizmoMoving ? mix(shader.gizmoFromWorld[0], shader.gizmoFromWorld[1], world.time)
                               : shader.gizmoFromWorld[0];
        origin = toVector(gizmoFromWorld.applyPoint(world.origin - world.dir));
        dir = toVector(gizmoFromWorld.applyVector(world.dir));
    }

    void run() {
        float from = rayData.ray.mint;
        GizmoHit hit;
        for (int round = 1; round <= kMaxRounds && nextHit(from, hit); ++round) {
            if (round > kReportedRounds)
                logLine("#BuildSegments: potential infinite loop gmaxt:%g trg:%d\n", hit.distance,
                        hit.triangle);
            cross(hit);
            if (end <= hit.distance)
                break;
            from = afterHit(from, hit.distance);
        }
        if (inside != 0)
            addSpan(end);
    }

private:
    bool nextHit(float from, GizmoHit& hit) const {
        if (!gizmo.firstHit(origin, dir, from, kNoLimit, hit))
            return false;
        if (inverted)
            hit.side ^= 3;
        return true;
    }

    void cross(const GizmoHit& hit) {
        if (hit.side == 1) {
            if (inside != 1)
                start = hit.distance;
            inside = 1;
            return;
        }
        inside = 0;
        if (std::min(end, hit.distance) - 1.0f > 0.0f)
            addSpan(std::min(end, hit.distance));
        start = hit.distance;
    }

    /// Where to look for the next hit; pushed on when the last query came back to its own start.
    static float afterHit(float from, float hit) {
        if (hit > from)
            return hit;
        logLine("#BuildSegments: potential infinite loop mint>=maxt: %g %g \n", from, hit);
        return from + hit * 1e-6f;
    }

    void addSpan(float until) {
        rayData.ray.mint = std::max(start - 1.0f, 0.0f);
        rayData.ray.maxt = until - 1.0f;
        if (rayData.ray.mint < rayData.ray.maxt)
            addSegment(rayData);
    }

    RayData& rayData;
    const GizmoObject& gizmo;
    TessUtils::Vector origin, dir;
    bool inverted;
    float start, end;
    int inside;  // 1: inside a body, 2: outside of an inverted one, not entered yet
};

}  // namespace

void splitByGizmo(RayData& rayData, const WorldRay& world) {
    GizmoWalk(rayData, world).run();
}

}  // namespace nimbra
