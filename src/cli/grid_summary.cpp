// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/grid_summary.h"

#include <algorithm>

namespace nimbra::cli {
namespace {

GridSummary::Kind kindOf(const VdbGridInfo& g) {
    if (g.components == 3)
        return GridSummary::Kind::Vector;
    if (g.gridClass == "level set")
        return GridSummary::Kind::LevelSet;
    const bool real = g.valueType == "float" || g.valueType == "double";
    const bool whole = g.valueType == "int32" || g.valueType == "int64";
    return real || whole ? GridSummary::Kind::Scalar : GridSummary::Kind::Other;
}

}  // namespace

std::vector<GridSummary> summarize(const VdbFileInfo& file) {
    std::vector<GridSummary> grids;
    for (const VdbGridInfo& g : file.grids) {
        GridSummary s;
        s.name = g.name;
        s.kind = kindOf(g);
        s.readable = g.readable;
        s.problem = g.problem;
        s.low = g.low;
        s.high = g.high;
        s.activeVoxels = g.activeVoxels;
        s.min = *std::min_element(g.min.begin(), g.min.begin() + g.components);
        s.max = *std::max_element(g.max.begin(), g.max.begin() + g.components);
        s.mean = g.mean[0];
        s.meanVector = g.mean;
        s.toWorld = g.toWorld;
        grids.push_back(std::move(s));
    }
    return grids;
}

UpConvention upConventionOf(const VdbFileInfo& file) {
    constexpr int kY = 1, kZ = 2;
    UpConvention up{.program = -1, .format = kY};
    for (const auto& [name, value] : file.metadata) {
        if (name == "creator")
            up.program = value.starts_with("Houdini") ? kY : value.starts_with("Blender") ? kZ : -1;
        // Made of a .kol file.
        if (name == "NimbraVDBVer")
            up.format = kZ;
    }
    // The fluid solver of Blender leaves its resolution in each grid.
    for (const VdbGridInfo& g : file.grids)
        for (const auto& [name, value] : g.metadata)
            if (name == "file_base_resolution")
                up.program = kZ;
    return up;
}

namespace {

// Dense formats know no active voxels: those that aren't 0 stand for them.
GridSummary summaryOf(const F3dLayerInfo& l) {
    GridSummary s;
    s.name = l.name;
    s.kind = l.components == 3 ? GridSummary::Kind::Vector : GridSummary::Kind::Scalar;
    s.readable = l.mappable;
    s.problem = l.problem;
    for (int a = 0; a < 3; ++a) {
        s.low[a] = static_cast<int>(l.nonzeroLow[a]);
        s.high[a] = static_cast<int>(l.nonzeroHigh[a]);
    }
    s.activeVoxels = l.nonzeroVoxels;
    s.min = *std::min_element(l.min.begin(), l.min.begin() + l.components);
    s.max = *std::max_element(l.max.begin(), l.max.begin() + l.components);
    s.mean = l.nonzeroMean[0];
    s.meanVector = l.nonzeroMean;
    s.toWorld = l.toWorld;
    return s;
}

}  // namespace

std::vector<GridSummary> summarize(const F3dFileInfo& file) {
    std::vector<GridSummary> grids;
    for (const F3dLayerInfo& l : file.layers)
        grids.push_back(summaryOf(l));
    return grids;
}

}  // namespace nimbra::cli
