// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Memory and set-up of segments.
#include "volume/ray_segment.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "volume/volume_shader.h"

namespace nimbra {

RaySegment* SegmentPool::take() {
    if (used == kBlock) {
        std::unique_ptr<Block> block(new (std::nothrow) Block);
        if (!block)
            return nullptr;
        block->next = std::move(blocks);
        blocks = std::move(block);
        used = 0;
    }
    unsigned char* bytes = blocks ? blocks->bytes : first;
    return new (bytes + sizeof(RaySegment) * used++) RaySegment{};
}

void initSegment(RaySegment& segment, const RayBlock& ray, const VolumeShader& shader,
                 bool colored) {
    segment.shader = &shader;
    segment.origin = ray.origin;
    segment.dir = ray.dir;
    segment.invDir = ray.invDir;
    segment.signMask = ray.signMask;
    segment.tCur = ray.mint;
    segment.tEnd = ray.maxt;
    if (colored)
        segment.state |= kSegmentColored;

    segment.dirLength = length(ray.dir);
    segment.dirLengthInv = 1.0f / segment.dirLength;
    const TessUtils::Vector unit = ray.dir * segment.dirLengthInv;
    segment.worldScale =
        length(TessUtils::Vector{unit.x * shader.cell_aspect[0], unit.y * shader.cell_aspect[1],
                                 unit.z * shader.cell_aspect[2]});

    // A step advances the given number of cells along the dominant axis.
    const float cells = colored ? shader.rendstep : shader.rendshadstep;
    const float dominant =
        std::max({std::fabs(ray.dir.x), std::fabs(ray.dir.y), std::fabs(ray.dir.z)});
    const float gridLength = segment.dirLength * cells / dominant;
    segment.stepT = gridLength * segment.dirLengthInv;
    segment.stepLength = gridLength * segment.worldScale;
}

}  // namespace nimbra
