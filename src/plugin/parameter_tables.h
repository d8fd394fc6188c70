// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter tables of the library's plug-ins, one function each: every row with its type,
// default, description and hint, in the order that hosts list them. Scene files name these rows, so
// none may change; new ones go to the end.
#pragma once

#include "tessra/parameters.h"

namespace nimbra {

/// Counts of a row: one value, or a list of any length.
inline constexpr int kSingle = -1;
inline constexpr int kList = 0;

void buildGeomParameters(TessUtils::TessraParameterListDesc& desc);
void buildMeshParameters(TessUtils::TessraParameterListDesc& desc);
void buildTexParameters(TessUtils::TessraParameterListDesc& desc);
void buildParticleTexParameters(TessUtils::TessraParameterListDesc& desc);
void buildOceanTexParameters(TessUtils::TessraParameterListDesc& desc);
void buildCacheParameters(TessUtils::TessraParameterListDesc& desc);
void buildSimParameters(TessUtils::TessraParameterListDesc& desc);
void buildParticleShaderParameters(TessUtils::TessraParameterListDesc& desc);
void buildPGroupParameters(TessUtils::TessraParameterListDesc& desc);
void buildPrtLoaderParameters(TessUtils::TessraParameterListDesc& desc);
void buildVolParameters(TessUtils::TessraParameterListDesc& desc);
void buildTexAlphaParameters(TessUtils::TessraParameterListDesc& desc);

/// The rows that the grid texture and the particle texture share with the other textures of a
/// scene: colour correction, placement and noise. They come first in both tables.
void buildCommonTextureParameters(TessUtils::TessraParameterListDesc& desc);

}  // namespace nimbra
