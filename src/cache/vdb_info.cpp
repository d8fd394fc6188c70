// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/vdb_info.h"

#include <fmt/format.h>

#include <new>

#include "cache/tree_access.h"
#include "cache/vdb_points.h"
#include "cache/vdb_tree.h"

namespace nimbra {

namespace {

std::string compressionText(std::uint32_t flags) {
    std::string text = flags & 4 ? "blosc" : flags & 1 ? "zip" : "";
    if (flags & 2)
        text += text.empty() ? "active values" : "+active values";
    return text.empty() ? "none" : text;
}

std::vector<std::pair<std::string, std::string>> textsOf(const std::vector<VdbMetadata>& list) {
    std::vector<std::pair<std::string, std::string>> out;
    out.reserve(list.size());
    for (const VdbMetadata& entry : list)
        out.emplace_back(printable(entry.name), entry.text());
    return out;
}

void describeHead(const VdbGridHead& head, VdbGridInfo& info) {
    info.compression = compressionText(head.compression);
    info.halfFloats = head.halfFloats;
    info.transformType = printable(head.transform.type);
    info.linear = head.transform.linear;
    info.toWorld = head.transform.toWorld;
    info.voxelSize = head.transform.voxelSize();
    info.metadata = textsOf(head.metadata);
    const VdbMetadata* const kind = findMetadata(head.metadata, "class");
    info.gridClass = kind && kind->type == "string" ? printable(kind->value) : "unknown";
}

void describeTopology(const VdbTopology& topology, VdbGridInfo& info) {
    if (!topology.empty()) {
        info.low = topology.low;
        info.high = topology.high;
    }
    info.activeVoxels = topology.activeVoxels;
    info.leafNodes = topology.leafNodes;
    info.bytesInMemory = topology.bytesInMemory;
}

/// What the file itself says of a tree that can't be walked.
void describeByMetadata(const VdbGridHead& head, VdbGridInfo& info) {
    std::int64_t number = 0;
    std::array<std::int64_t, 3> low, high;
    const auto find = [&](const char* name) { return findMetadata(head.metadata, name); };
    if (const VdbMetadata* count = find("file_voxel_count"); count && count->asInt(number))
        info.activeVoxels = number;
    if (const VdbMetadata* bytes = find("file_mem_bytes"); bytes && bytes->asInt(number))
        info.bytesInMemory = static_cast<std::uint64_t>(number);
    const VdbMetadata* const first = find("file_bbox_min");
    const VdbMetadata* const last = find("file_bbox_max");
    if (first && last && first->asInt3(low) && last->asInt3(high))
        for (int a = 0; a < 3; ++a) {
            info.low[a] = static_cast<std::int32_t>(low[a]);
            info.high[a] = static_cast<std::int32_t>(high[a]);
        }
}

void describeValues(const VdbStatistics& values, VdbGridInfo& info) {
    info.hasValues = true;
    info.background = values.background;
    info.min = values.min;
    info.max = values.max;
    info.mean = values.mean;
    info.nanCount = values.nanCount;
    info.infiniteCount = values.infiniteCount;
}

void describeTree(VdbFile& file, const VdbDescriptor& grid, bool values, VdbGridInfo& info) {
    const VdbDescriptor* const owner = file.treeOwner(grid);
    if (!owner) {
        info.problem = "shares the tree of a grid that isn't there";
        return;
    }
    VdbGridBytes bytes;
    if (!file.readTree(*owner, values, bytes, info.problem))
        return;
    describeTopology(bytes.topology, info);
    if (values) {
        const auto tree = buildVdbTree(file.head(), *owner, bytes, info.problem);
        if (!tree)
            return;
        describeValues(vdbStatistics(tree, bytes.kind), info);
    }
    info.readable = true;
}

void describePoints(VdbFile& file, const VdbDescriptor& grid, VdbGridInfo& info) {
    VdbGridBytes bytes;
    VdbPoints points;
    if (!file.readPoints(grid, bytes, points, info.problem))
        return;
    describeTopology(bytes.topology, info);
    info.points = points.count;
    for (const VdbPointAttribute& a : points.attributes)
        info.attributes.emplace_back(printable(a.name), printable(a.type + " " + a.codec));
    info.problem = "points become a particle group, not a channel";
}

VdbGridInfo describeGrid(VdbFile& file, const VdbDescriptor& grid, bool values) {
    VdbGridInfo info;
    info.name = printable(grid.label);
    info.treeType = printable(grid.treeType);
    info.valueType = valueTypeOf(info.treeType);
    info.gridClass = "unknown";
    info.bytesOnDisk = grid.endPosition - grid.gridPosition;
    VdbGridHead head;
    if (!file.readHead(grid, head, info.problem))
        return info;
    describeHead(head, info);
    const int kind = treeKindOfType(grid.treeType);
    info.components = kind == kVec3fTree || kind == kVec3dTree ? 3 : 1;
    if (kind == kDense) {
        describeByMetadata(head, info);
        if (isPointsType(grid.treeType)) {
            info.valueType = "points";
            describePoints(file, grid, info);
            return info;
        }
        info.problem = fmt::format("a grid of type '{}' can't become a channel", info.valueType);
        return info;
    }
    describeTree(file, grid, values, info);
    return info;
}

}  // namespace

VdbFileInfo readVdbInfo(const std::string& path, bool values) {
    VdbFileInfo info;
    info.path = path;
    try {
        VdbFile file;
        info.readable = file.open(path);
        info.problem = file.problem();
        info.bytes = file.size();
        info.formatVersion = static_cast<int>(file.head().formatVersion);
        info.libraryVersion[0] = static_cast<int>(file.head().libraryMajor);
        info.libraryVersion[1] = static_cast<int>(file.head().libraryMinor);
        info.metadata = textsOf(file.head().metadata);
        for (const VdbDescriptor& grid : file.grids())
            info.grids.push_back(describeGrid(file, grid, values));
    } catch (const std::bad_alloc&) {
        info.problem = "there isn't enough memory";
        info.readable = false;
    } catch (const std::exception& e) {
        info.problem = printable(e.what());
        info.readable = false;
    }
    return info;
}

}  // namespace nimbra
