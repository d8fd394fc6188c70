// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/vdb_point_group.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "cache/prt_group.h"
#include "cache/vdb_points.h"
#include "foundation/log.h"

namespace nimbra {
namespace {

// Names of attributes that become channels. Groups have no channels for "Orientation" and "Scale".
constexpr std::pair<const char*, PrtChannelId> kChannelNames[] = {
    {"Velocity", kPrtVelocity},
    {"Size", kPrtSize},
    {"Age", kPrtAge},
    {"Color", kPrtColor},
};

/// The format's own name of the positions, which are relative to the middle of a point's voxel.
constexpr const char* kPositions = "P";

class PointGroup {
public:
    PointGroup(VdbFile& file, const VdbDescriptor& grid) : file_(file), grid_(grid) {}

    bool read(std::string& problem) {
        if (!file_.readPoints(grid_, bytes_, points_, problem))
            return false;
        const int positions = points_.attribute(kPositions);
        // A grid without points says nothing of attributes.
        if (points_.leaves.empty())
            return true;
        if (positions >= 0 && pointValuesReadable(attributeAt(positions), 3))
            return true;
        problem = "its points have no positions that can be read";
        return false;
    }

    /// Positions first: without them there is no group.
    bool fill(NimbraFrameData::PGroup& group, const std::array<std::int32_t, 3>& low,
              std::string& problem) const {
        if (points_.leaves.empty())
            return true;
        std::vector<float> positions;
        std::vector<std::array<std::int32_t, 3>> voxels;
        if (!readPointValues(bytes_.span(), points_, points_.attribute(kPositions), 3, positions,
                             problem) ||
            !readPointVoxels(bytes_.span(), points_, voxels, problem))
            return false;
        for (std::size_t i = 0; i < voxels.size(); ++i)
            for (std::size_t a = 0; a < 3; ++a) {
                const double cell = static_cast<double>(voxels[i][a]) - low[a];
                float& position = positions[i * 3 + a];
                position = static_cast<float>(cell + position);
            }
        extendBox(*group.frame, positions);
        if (!group.setChannel(kPrtPosition, positions.data())) {
            problem = "there isn't enough memory";
            return false;
        }
        for (const auto& [name, channel] : kChannelNames)
            fillChannel(group, name, channel);
        return true;
    }

    /// What a group without values tells.
    void describe(NimbraFrameData::PGroup& group) const {
        if (points_.leaves.empty())
            return;
        group.channelMask = channelBit(kPrtPosition);
        for (const auto& [name, channel] : kChannelNames) {
            const int attribute = points_.attribute(name);
            if (attribute >= 0 &&
                pointValuesReadable(attributeAt(attribute), prtChannelWords(channel)))
                group.channelMask |= channelBit(channel);
        }
    }
    std::int32_t count() const { return static_cast<std::int32_t>(points_.count); }

private:
    const VdbPointAttribute& attributeAt(int index) const {
        return points_.attributes[static_cast<std::size_t>(index)];
    }

    void fillChannel(NimbraFrameData::PGroup& group, const char* name, PrtChannelId channel) const {
        const int attribute = points_.attribute(name);
        if (attribute < 0)
            return;
        std::vector<float> values;
        std::string problem;
        if (readPointValues(bytes_.span(), points_, attribute, prtChannelWords(channel), values,
                            problem))
            group.setChannel(channel, values.data());
        else
            NMBUtils::logLine("Points grid '%s': %s\n", printable(grid_.label).c_str(),
                              problem.c_str());
    }

    static void extendBox(NimbraFrameData& frame, const std::vector<float>& positions) {
        for (std::size_t i = 0; i < positions.size(); ++i)
            if (std::isfinite(positions[i])) {
                frame.bboxMin[i % 3] = std::min(frame.bboxMin[i % 3], positions[i]);
                frame.bboxMax[i % 3] = std::max(frame.bboxMax[i % 3], positions[i]);
            }
    }

    VdbFile& file_;
    const VdbDescriptor& grid_;
    VdbGridBytes bytes_;
    VdbPoints points_;
};

}  // namespace

void addPointGroup(NimbraFrameData& frame, VdbFile& file, const VdbDescriptor& grid,
                   const std::array<std::int32_t, 3>& low, bool headerOnly) {
    std::string problem;
    const int before = frame.groups.size;
    try {
        PointGroup source(file, grid);
        bool sound = source.read(problem);
        NimbraFrameData::PGroup* const group = sound ? frame.addGroup(grid.label) : nullptr;
        if (group) {
            group->count = source.count();
            if (headerOnly)
                source.describe(*group);
            else
                sound = source.fill(*group, low, problem);
        }
        if (sound && group)
            return;
        if (sound)
            problem = "there isn't enough memory";
    } catch (const std::bad_alloc&) {
        problem = "there isn't enough memory";
    }
    if (frame.groups.size > before)
        delete frame.groups[--frame.groups.size];
    NMBUtils::logLine("Points grid '%s' is left out: %s\n", printable(grid.label).c_str(),
                      problem.c_str());
}

}  // namespace nimbra
