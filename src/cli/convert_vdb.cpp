// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
#include <fmt/format.h>
#include <openvdb/io/Archive.h>
#include <openvdb/openvdb.h>

#include <cmath>
#include <new>
#include <sstream>
#include <utility>

#include "cache/channel_mapping.h"
#include "cache/prt_group.h"
#include "cache/vdb_tree.h"
#include "cli/cache_frame.h"
#include "cli/convert_frame.h"

namespace nimbra::cli {
namespace {

using openvdb::Coord;
using openvdb::FloatGrid;

/// The name under which a channel travels; empty for those that have none.
std::string gridName(int channel) {
    for (const CacheIO::GridMapping& m : CacheIO::parseChannelMap(CacheIO::ownChannelMap()))
        if (m.channel == channel)
            return m.name;
    return "";
}

/// Cells to object space: the inverse of the frame's transform.
openvdb::math::Transform::Ptr toWorld(const NimbraFrameData& frame, ConvertReport& report) {
    openvdb::math::Mat4d cells = openvdb::math::Mat4d::identity();
    for (int v = 0; v < 4; ++v)
        for (int x = 0; x < 3; ++x)
            cells(v, x) = static_cast<double>(frame.transform[v * 3 + x]);
    const double volume = cells.det();
    if (!std::isnormal(volume) || !std::isnormal(1 / volume)) {
        report.leftOut.push_back("the transform can't be inverted");
        return openvdb::math::Transform::createLinearTransform();
    }
    return openvdb::math::Transform::createLinearTransform(cells.inverse());
}

/// All cells that aren't 0, and the two corners, so that the grid keeps its size.
bool fillGrid(const std::vector<float>& values, const int size[3], const host::AbortFlag& abort,
              FloatGrid& grid) {
    auto cells = grid.getAccessor();
    std::size_t at = 0;
    for (int z = 0; z < size[2]; ++z) {
        if (abort.requested())
            return false;
        for (int y = 0; y < size[1]; ++y)
            for (int x = 0; x < size[0]; ++x, ++at)
                if (values[at] != 0)
                    cells.setValue(Coord(x, y, z), values[at]);
    }
    cells.setActiveState(Coord(0, 0, 0), true);
    cells.setActiveState(Coord(size[0] - 1, size[1] - 1, size[2] - 1), true);
    grid.pruneGrid();
    return true;
}

openvdb::MetaMap tagsOf(const NimbraFrameData& frame, std::uint32_t mask) {
    openvdb::MetaMap tags;
    tags.insertMeta("NimbraVDBVer", openvdb::Int32Metadata(1));
    if (frame.flags & kFrameMaskBit31)
        mask |= 1u << 31;
    tags.insertMeta("NimbraChannelMask", openvdb::Int32Metadata(static_cast<std::int32_t>(mask)));
    if (frame.frameNumber != NimbraFrameData::kNoFrame)
        tags.insertMeta("NimbraFrameTag", openvdb::Int32Metadata(frame.frameNumber));
    return tags;
}

/// The library writes whole files by name alone, and doesn't tell whether the disk took them.
class MemoryArchive : public openvdb::io::Archive {
public:
    void writeTo(std::ostream& out, const openvdb::GridCPtrVec& grids,
                 const openvdb::MetaMap& tags) const {
        constexpr bool kWithPositions = true;
        write(out, grids, kWithPositions, tags);
    }
};

std::string bytesOf(const openvdb::GridCPtrVec& grids, const openvdb::MetaMap& tags) {
    std::ostringstream out(std::ios::binary);
    out.exceptions(std::ios::badbit | std::ios::failbit);
    MemoryArchive().writeTo(out, grids, tags);
    return std::move(out).str();
}

void nameGroups(const NimbraFrameData& frame, ConvertReport& report) {
    for (const NimbraFrameData::PGroup* const group : frame.groups)
        report.leftOut.push_back(fmt::format(
            "{} particles of group '{}': .vdb files get grids alone", group->count, group->name));
}

}  // namespace

ConvertResult packVdb(NimbraFrameData& frame, const host::AbortFlag& abort, std::string& bytes,
                      ConvertReport& report, std::string& error) try {
    prepareVdbLibrary();
    const openvdb::math::Transform::Ptr transform = toWorld(frame, report);
    openvdb::GridCPtrVec grids;
    std::uint32_t mask = 0;
    for (const int channel : storedChannels(frame)) {
        const std::string name = gridName(channel);
        const std::vector<float> values =
            name.empty() ? std::vector<float>() : takeVoxels(frame, channel);
        if (values.empty()) {
            report.leftOut.push_back(
                fmt::format("channel '{}' {}", channelName(channel),
                            name.empty() ? "has no name in .vdb files" : "can't be expanded"));
            continue;
        }
        const FloatGrid::Ptr grid = FloatGrid::create(0.0f);
        grid->setName(name);
        grid->setTransform(transform->copy());
        if (!fillGrid(values, frame.gridSize, abort, *grid))
            return ConvertResult::Aborted;
        grids.push_back(grid);
        mask |= channelBit(channel);
        report.channels.push_back({channelName(channel)});
    }
    nameGroups(frame, report);
    bytes = bytesOf(grids, tagsOf(frame, mask));
    return ConvertResult::Done;
} catch (const std::bad_alloc&) {
    return ConvertResult::NoMemory;
} catch (const std::exception& e) {
    error = e.what();
    return ConvertResult::Failed;
}

}  // namespace nimbra::cli
