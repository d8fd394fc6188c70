// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The parameter table of a cache.
#include "plugin/parameter_tables.h"
#include "tessra/ids.h"

namespace nimbra {

using namespace TessUtils;

namespace {
// One setting of the smoothing for each channel.
constexpr int kSmoothChannels = 32;
}  // namespace

void buildCacheParameters(TessraParameterListDesc& desc) {
    desc.addParamString(
        "cache_path", "", kSingle, "Input Cache Path",
        "displayName=(Input Cache File), fileAsset=(vdb;f3d;kol), "
        "fileAssetNames=(OpenVDB;Field3D;Nimbra), fileAssetOp=(load), startRollout=(Input)");
    desc.addParamBool("cache_load", true, kSingle, "deprecated");
    desc.addParamBool("velocities_from_uvw", false, kSingle,
                      "Create velocity channel from the uvw movement channel.");
    desc.addParamBool("isMayaFluid", false, kSingle,
                      "True if this node represents Maya Fluid cache.");
    desc.addParamInt(
        "empty_grid_up_axis", 2, kSingle,
        "Specifies which axis should be used as up when constructing empty grids. Y is 1, Z is 2");
    desc.addParamFloat("grid_size_x", 1.0f, kSingle,
                       "Number of cells in x dimension if no cache file is specified; internally "
                       "truncated to the nearest integer");
    desc.addParamFloat("grid_size_y", 1.0f, kSingle,
                       "Number of cells in y dimension if no cache file is specified; internally "
                       "truncated to the nearest integer");
    desc.addParamFloat("grid_size_z", 1.0f, kSingle,
                       "Number of cells in z dimension if no cache file is specified; internally "
                       "truncated to the nearest integer");
    desc.addParamFloat("cell_size", 1.0f, kSingle, "Size of a single grid cell");
    desc.addParamFloat("dynamic_offset_x", 0.0f, kSingle,
                       "The x dynamic offset of the fluid container.");
    desc.addParamFloat("dynamic_offset_y", 0.0f, kSingle,
                       "The y dynamic offset of the fluid container.");
    desc.addParamFloat("dynamic_offset_z", 0.0f, kSingle,
                       "The z dynamic offset of the fluid container.");
    desc.addParamInt("anim_mode", 0, kSingle,
                     "Playback Mode, 0 - Linear, 1 - Frame Index, 2 - Loop",
                     "enum=(0:Linear; 1:Frame Index; 2:Loop), startRollout=(Time Bend Controls)");
    desc.addParamInt("loop_overlap", 0, kSingle,
                     "Number of overlapped frame in the looped animation mode.",
                     "minValue=(0), maxValue=(100), enable=(::anim_mode=2)");
    desc.addParamInt("blend_method", 0, kSingle, "Frame Blending",
                     "enum=(0:Interpolation; 1:Velocity)");
    desc.addParamInt("read_offset", 0, kSingle, "Cache Start",
                     "minValue=(-10000), maxValue=(10000), enable=(::anim_mode!=1)");
    desc.addParamInt("play_at", 0, kSingle, "Play Start",
                     "minValue=(-10000), maxValue=(10000), enable=(::anim_mode!=1)");
    desc.addParamInt("max_length", 0, kSingle, "Play Length",
                     "minValue=(-10000), maxValue=(10000), enable=(::anim_mode!=1)");
    desc.addParamFloat("play_speed", 1.0f, kSingle, "Play Speed",
                       "minValue=(-10), maxValue=(10), enable=(::anim_mode!=1)");
    desc.addParamFloat(
        "t2f", 0.0f, kSingle, "Direct time to frame transformation.",
        "displayName=(Frame Index), minValue=(0), maxValue=(1000), enable=(::anim_mode=1)");
    desc.addParamInt("TPF", 1000, kSingle, "ticks per frame");
    desc.addParamBool("flip_yz", false, kSingle,
                      "If true, the yz axis of the cache will be flipped.",
                      "displayName=(Flip Up axis)");
    desc.addParamInt("load_flags", 0, kSingle, "Deprecated parameter");
    desc.addParamBool("time_tform", true, kSingle,
                      "If true, Time Bend options would be applied to the animation sequence");
    desc.addParamBool("load_nearest", false, kSingle,
                      "If there is no cache file with the desired frame number, the nearest cache "
                      "is found and loaded.",
                      "displayName=(Load Nearest if Missing)");
    desc.addParamInt("smooth_mask", 0, kSingle, "");
    desc.addParamFloat("smooth_threshold", 0.0f, kSmoothChannels, "");
    desc.addParamFloat("smooth_similarity", 0.0f, kSmoothChannels, "");
    desc.addParamFloat("smooth_randomize", 0.0f, kSmoothChannels, "");
    desc.addParamInt("free_mem_detect", 0, kSingle, "internally used");
    desc.addParamString("usrchmap", "", kSingle, "3rd party caches channels mappings.");
}

}  // namespace nimbra
