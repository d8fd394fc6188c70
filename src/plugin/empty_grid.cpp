// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "plugin/empty_grid.h"

#include <algorithm>
#include <cmath>

#include "tessra/parameters.h"
#include "tessra/tessra_plugin.h"

namespace nimbra {

using namespace TessUtils;

namespace {

/// The row that the scene set, null where it is unset.
TessraPluginParameter* row(PluginBase* plugin, const char* name) {
    auto* interface = static_cast<TessraPluginInterface*>(plugin->getInterface(ids::kTessraPlugin));
    return interface ? interface->getParameter(name) : nullptr;
}

float valueOf(PluginBase* plugin, const char* name, double time) {
    const TessraPluginParameter* value = row(plugin, name);
    return value ? value->getFloat(0, time) : 0;
}

int wholeCells(float cells) {
    constexpr float kMostCells = 1 << 20;
    return cells > 0 ? static_cast<int>(std::floor(std::min(cells, kMostCells) + 0.5f)) : 0;
}

}  // namespace

bool readEmptyGridSettings(PluginBase* cache, double time, EmptyGrid& grid) {
    static const char* const kSizes[3] = {"grid_size_x", "grid_size_y", "grid_size_z"};
    static const char* const kOffsets[3] = {"dynamic_offset_x", "dynamic_offset_y",
                                            "dynamic_offset_z"};
    if (!cache)
        return false;
    int upAxis = 2;
    if (const TessraPluginParameter* up = row(cache, "empty_grid_up_axis"))
        upAxis = up->getInt(0, time);
    for (int axis = 0; axis < 3; ++axis) {
        if (!row(cache, kSizes[axis]))
            return false;
        grid.size[axis] = wholeCells(valueOf(cache, kSizes[axis], time));
    }
    if (!row(cache, "cell_size"))
        return false;
    const float cellSize = valueOf(cache, "cell_size", time);
    const float cellsPerUnit = cellSize > 0 ? 1 / cellSize : 1;
    for (int axis = 0; axis < 3; ++axis) {
        grid.gridFromObject.axis[axis] = {};
        grid.gridFromObject.axis[axis][axis] = cellsPerUnit;
        const int centre = axis == upAxis ? 0 : grid.size[axis] / 2;
        grid.gridFromObject.offset[axis] =
            static_cast<float>(centre) - valueOf(cache, kOffsets[axis], time) * cellsPerUnit;
    }
    return true;
}

}  // namespace nimbra
