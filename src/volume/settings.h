// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Turns a container's parameters into the state of its shader for one frame. The one place that
// knows how the keys map to shader state.
#pragma once

namespace nimbra {

class GridTransforms;
class NimbraFrameData;
class NimbraParams;
class NimbraVolumeRenderLUTholder;
class VolumeShader;

struct VolumeSettingsSource {
    const NimbraParams& params;
    NimbraFrameData* frame;  // null: set up without channels, with the grid size of `luts`
    const NimbraVolumeRenderLUTholder& luts;  // outlives the shader's use of its tables
    const GridTransforms& transforms;
    bool forGPU = false;  // never an isosurface
    bool skipDisplacement = false;
};

/// Reads all settings, gives the shader its grid, tables and channels. Stops half way, with
/// shader.outOfMemory set, when there is no memory for the light cache.
void readVolumeSettings(VolumeShader& shader, const VolumeSettingsSource& source);

}  // namespace nimbra
