// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Marches one ray through any number of volumes at once.
#pragma once

#include "tessra/math.h"
#include "volume/illuminator.h"
#include "volume/ray_segment.h"
#include "volume/shader_tree.h"
#include "volume/volume_shader.h"

namespace nimbra {

struct ShadeQuery {
    const ShaderTree* tree = nullptr;  // used from 11 shaders on
    const VolumeShader* const* shaders = nullptr;
    int count = 0;
    TessUtils::TracePoint rayStart, rayEnd;  // world space
    float time = 0;                          // within the frame, 0 to 1
    bool isGI = false;
    float gamma = 1;
    int probabilisticSamples = 0;  // 0: blend the steps
};

/// Composites the volumes along the ray over `colorInOut`; null asks for transparency only.
/// `alphaOut` takes the opacity. Answers 0, and leaves the colour alone, when the ray met nothing.
/// Overlapping volumes mix step by step, the nearest first.
int Shade(const ShadeQuery& query, Illuminator& illuminator, TessUtils::Color* colorInOut,
          TessUtils::Color& alphaOut);

/// Cuts the ray into one segment per shader and span inside the shader's box and cutter. True when
/// there is none.
bool BuildSegments(RayData& rayData, const ShadeQuery& query);

}  // namespace nimbra
