// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What the marcher must know of a host's ray.
#pragma once

#include <cstdint>

#include "tessra/shading.h"

namespace nimbra {

/// Bits of Illuminator::kind for a ray of the host:
///
///   kKindDiffuse        after at least one diffuse bounce
///   kKindVolumeLit      kRayVolume, passed through
///   kKindGI             a GI or caustics ray, or any ray after a diffuse bounce
///   kKindAlwaysVisible  a caustics ray: it meets also what is hidden from GI
///   kKindLightPass      a ray of a light-cache or irradiance pre-pass
///   kKindCacheFill      with kKindGI or kKindLightPass: a secondary ray lights its own steps
///                       instead of filling the light cache that the picture is made from
///
/// kKindOwnShader changes with the selected shader and kKindTransparency is set by the marcher.
std::uint32_t rayKind(const TessUtils::TraceRay& ray);

/// The bits of a kind that make a ray a secondary one, for which the lesser number of
/// probabilistic samples is taken.
bool isSecondaryKind(std::uint32_t kind);

}  // namespace nimbra
