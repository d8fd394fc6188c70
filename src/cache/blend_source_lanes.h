// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The search of blend_velocity.h in dense channels, and what follows it, several cells side by
// side.
#pragma once

#include "cache/grid_channel.h"

namespace nimbra {

/// Steps of a search at most.
inline constexpr int kSearchRounds = 20;
/// Square of the difference vector below which a place is flat.
inline constexpr float kFlatSteepness = 0.0001f;
/// Share of the way down to the searched value that a step goes.
inline constexpr float kStepShare = 0.7f;

/// Cells that follow each other along x, and what is known of each of them.
struct SearchedCells {
    /// The first one, in cells of the searched grid; it need not lie in there.
    int x, y, z;
    int count;
    /// `velocity` in cells for each unit of timeStep.
    const float* velocity[3];
    float timeStep;
    /// The values that are searched.
    const float* target;
};

/// Cells that follow each other along x, with their sources.
struct SourcedCells {
    /// The first one, in cells of the sampled grid.
    int x, y, z;
    int count;
    /// 3 floats a cell.
    const float* sources;
    /// How far a value has come back to its source, 0 to 1.
    float weight;
};

/// Whether the functions below can read this storage: a dense one of two cells along x at least,
/// with indices of 31 bits.
bool suitsLanes(const GridStorage& grid);

/// Writes 3 floats for each cell, to the bits of a search for one cell after the other (of a NaN
/// only that it is one).
void findSources(const GridStorage& grid, const SearchedCells& cells, float* sources);

/// Writes for each cell what lies between it and its source, to the bits of the linear kernel.
void sampleWays(const GridStorage& grid, const SourcedCells& cells, float* values);

}  // namespace nimbra
