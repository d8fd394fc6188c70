// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From a layer's stored voxels to dense grids of floats.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "field3d/f3d_file.h"

namespace nimbra {

/// Where one component of a layer goes: a dense grid, x fastest, whose cell (0, 0, 0) is voxel
/// `box.low`. The box contains the layer's window.
struct F3dTarget {
    float* voxels = nullptr;
    F3dBox box;
    int component = 0;
    float scale = 1;
};

/// Most bytes of expanded voxels that a file of this size may ask for. Blocks of which only one
/// value is stored expand by far more than deflate could; this leaves room for blocks of 16 cells
/// on a side, of which none is occupied.
std::uint64_t largestExpansion(std::uint64_t fileBytes);

/// Fills the targets. Cells outside the layer's window get the value of the first block of a sparse
/// field, and stay as they are for others. Of a MAC field cell centres get the mean of two faces,
/// rounded to the type of the file. Values too large for a float become infinite. False (and
/// `problem`) when the file's data isn't sound; the targets are then filled in part.
bool readVoxels(F3dFile& file, const F3dLayer& layer, const std::vector<F3dTarget>& targets,
                std::string& problem);

}  // namespace nimbra
