// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "volume/ray_kind.h"

#include "volume/illuminator.h"

namespace nimbra {

bool isSecondaryKind(std::uint32_t kind) {
    return (kind & (kKindGI | kKindLightPass)) != 0;
}

std::uint32_t rayKind(const TessUtils::TraceRay& ray) {
    std::uint32_t kind = 0;
    if (ray.diffuseLevel > 0)
        kind |= kKindDiffuse | kKindGI;
    if (ray.flags & TessUtils::kRayVolume)
        kind |= kKindVolumeLit;
    if (ray.flags & (TessUtils::kRayGI | TessUtils::kRayCaustics))
        kind |= kKindGI;
    if (ray.flags & TessUtils::kRayCaustics)
        kind |= kKindAlwaysVisible;
    if (ray.flags & TessUtils::kRayLightCachePass)
        kind |= kKindLightPass;
    if (isSecondaryKind(kind))
        kind |= kKindCacheFill;
    return kind;
}

}  // namespace nimbra
