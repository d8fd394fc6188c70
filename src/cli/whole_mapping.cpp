// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include "cli/whole_mapping.h"

#include <algorithm>
#include <span>

#include "cache/channel_id.h"
#include "cache/external_readers.h"
#include "cache/file_patterns.h"
#include "cli/cache_frame.h"
#include "cli/grid_names.h"

namespace nimbra::cli {
namespace {

using CacheIO::AvailableChannels;
using CacheIO::GridMapping;

bool isMapped(const std::vector<GridMapping>& mappings, int channel) {
    return std::any_of(mappings.begin(), mappings.end(),
                       [&](const GridMapping& m) { return m.channel == channel; });
}

void addScalar(const std::vector<AvailableChannels>& available, const Names& names, int channel,
               std::vector<GridMapping>& out) {
    for (const char* name : names)
        for (const AvailableChannels& grid : available)
            if (!isMapped(out, channel) && !grid.isVector && foldedName(grid.name) == name)
                out.push_back({grid.name, channel});
}

/// Vectors are offered as "name(x)", "name(y)" and "name(z)".
void addVector(const std::vector<AvailableChannels>& available, const Names& names, int first,
               std::vector<GridMapping>& out) {
    constexpr int kAxes = 3;
    if (isMapped(out, first) || isMapped(out, first + 1) || isMapped(out, first + 2))
        return;
    constexpr std::string_view kFirstAxis = "(x)";
    for (const char* name : names)
        for (const AvailableChannels& grid : available) {
            if (!grid.isVector || !grid.name.ends_with(kFirstAxis))
                continue;
            const std::string base = grid.name.substr(0, grid.name.size() - kFirstAxis.size());
            if (foldedName(base) != name)
                continue;
            for (int a = 0; a < kAxes; ++a)
                out.push_back({base + "(" + static_cast<char>('x' + a) + ")", first + a});
            return;
        }
}

/// Three grids, of "name_r" and so on in any of the usual spellings.
void addComponents(const std::vector<AvailableChannels>& available, const Names& names,
                   const char* axes, int first, std::vector<GridMapping>& out) {
    constexpr int kAxes = 3;
    std::vector<GridMapping> found;
    for (int a = 0; a < kAxes; ++a)
        if (!isMapped(out, first + a))
            for (const char* name : names)
                addScalar(available, {(std::string(name) + axes[a]).c_str()}, first + a, found);
    if (found.size() == kAxes)
        out.insert(out.end(), found.begin(), found.end());
}

/// Distances to a liquid's surface travel as heat. What was taken for smoke for want of anything
/// better isn't needed beside them.
void addSurface(const std::vector<AvailableChannels>& available,
                std::span<const CacheIO::DefaultMapping> table, std::vector<GridMapping>& out) {
    if (isMapped(out, kTemperature))
        return;
    addScalar(available, kLevelSetNames, kTemperature, out);
    if (!isMapped(out, kTemperature))
        return;
    std::erase_if(out, [&](const GridMapping& m) {
        return m.channel == kSmoke && std::none_of(table.begin(), table.end(),
                                                   [&](const auto& d) { return m.name == d.name; });
    });
}

/// A grid's name without the axis of a component.
std::string withoutAxis(const AvailableChannels& grid) {
    constexpr std::size_t kAxis = 3;
    return grid.isVector && grid.name.size() > kAxis ? grid.name.substr(0, grid.name.size() - kAxis)
                                                     : grid.name;
}

}  // namespace

std::vector<GridMapping> wholeMapping(const std::vector<AvailableChannels>& available,
                                      std::span<const CacheIO::DefaultMapping> table) {
    std::vector<GridMapping> mappings = CacheIO::chooseMappings(available, table);
    addScalar(available, kTemperatureNames, kTemperature, mappings);
    addSurface(available, table, mappings);
    addScalar(available, kFlameNames, kFuel, mappings);
    addVector(available, kVelocityNames, kVelocityX, mappings);
    addVector(available, kColorNames, kColorR, mappings);
    addComponents(available, kVelocityNames, "xyz", kVelocityX, mappings);
    addComponents(available, kColorNames, "rgb", kColorR, mappings);
    return mappings;
}

std::string wholeMappingText(const std::vector<std::string>& files,
                             std::vector<std::string>& leftOut) {
    std::vector<AvailableChannels> all;
    bool isField3d = false;
    for (const std::string& path : files) {
        const std::string extension = fileExtension(path);
        std::vector<AvailableChannels> found;
        if (extension == "vdb")
            availableVdbChannels(path, found);
        else if (extension == "f3d" && prepareCacheReaders())
            isField3d = availableF3dChannels(path, found) || isField3d;
        for (AvailableChannels& grid : found)
            if (std::none_of(all.begin(), all.end(),
                             [&](const AvailableChannels& g) { return g.name == grid.name; }))
                all.push_back(std::move(grid));
    }
    if (all.empty())
        return "";
    const std::vector<GridMapping> mappings = wholeMapping(
        all, isField3d ? CacheIO::defaultF3dMappings() : CacheIO::defaultVdbMappings());
    for (const AvailableChannels& grid : all)
        if (std::none_of(mappings.begin(), mappings.end(),
                         [&](const GridMapping& m) { return m.name == grid.name; }) &&
            (leftOut.empty() || leftOut.back() != withoutAxis(grid)))
            leftOut.push_back(withoutAxis(grid));
    return CacheIO::defaultChannelMap(mappings);
}

}  // namespace nimbra::cli
