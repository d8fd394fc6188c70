// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The points of an OpenVDB points grid, read byte for byte by this library: any attribute whatever
// its type or codec can be stepped over, and nothing that a file states is believed unchecked.
//
// Buffers of a points grid, behind its topology (whose values are 32-bit numbers):
//
//   uint16 passes     4 + 2 A for A attributes; then all leaves one after the other in each pass:
//   pass 0            uint16 size of the leaf's packed voxels
//   pass 1            unless the first leaf's descriptor serves all leaves: uint8 flags (1: serves
//                     all, 2: uint64 n and n bytes to skip behind the descriptor), the descriptor;
//                     then for each attribute: uint64 bytes + 6, uint8 flags, uint8 form (1 with
//                     stride, 2 uniform: one value for all points, 8 paged), uint32 points,
//                     uint32 stride if the form says so
//   pass 2 + a        paged attributes: where the page before is used up, the head of a page: int32
//                     packed bytes, int32 plain bytes; or one int32: minus the bytes of a plain
//                     page
//   pass 2 + A        64 bytes mask, uint16 packed bytes, the voxels: 512 uint32, behind which
//   point
//                     each voxel ends; Blosc, or plain for a size of 65535
//   pass 3 + A + a    paged: the page, where one begins; others: uint8 1 for Blosc unless uniform,
//                     the bytes
//   descriptor        uint64 n, n times text type and text codec; n times text name and uint64
//                     place; uint64 m, m times group name and uint64 place; metadata
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "cache/vdb_walk.h"

namespace nimbra {

/// Whether a grid of that tree type holds points.
bool isPointsType(const std::string& treeType);

struct VdbPointAttribute {
    std::string name;
    std::string type;   // of the values: "vec3s", "float", ...
    std::string codec;  // how they are stored: "null", "trnc", "fxpt16", ...
};

/// The values of an attribute in one leaf.
struct VdbPointArray {
    std::uint32_t points = 0;
    bool uniform = false, paged = false, blosc = false;
    std::uint64_t bytes = 0;               // plain ones, or packed ones if `blosc`
    std::uint32_t stride = 1;              // values a point
    std::uint32_t page = 0, pageByte = 0;  // of a paged one
    std::uint64_t position = 0;            // in the grid's bytes, of one that isn't paged
};
struct VdbPointPage {
    std::int32_t packedBytes = 0;  // 0: plain
    std::int32_t plainBytes = 0;
    std::uint64_t position = 0;  // in the grid's bytes
};
struct VdbPointLeaf {
    std::array<std::int32_t, 3> origin{};
    std::uint64_t voxels = 0;  // position in the grid's bytes
    std::uint16_t voxelBytes = 0;
};

/// `voxelBytes` of voxels that aren't packed.
inline constexpr std::uint16_t kPlainPointVoxels = 65535;

/// Where all that belongs to a points grid lies in its bytes. Attribute, then leaf or page.
struct VdbPoints {
    std::vector<VdbPointAttribute> attributes;
    std::vector<VdbPointLeaf> leaves;
    std::vector<std::vector<VdbPointArray>> arrays;
    std::vector<std::vector<VdbPointPage>> pages;
    /// Of all leaves, as the arrays of the positions say; at most 2^31 - 1.
    std::int64_t count = 0;

    /// The place of an attribute, -1 if there is none.
    int attribute(const char* name) const;
};

/// Walks the buffers from where `in` stands to the last byte that belongs to them. False: `problem`
/// says what is wrong.
bool walkPoints(BoundedReader& in, const VdbTopology& topology, VdbPoints& points,
                std::string& problem);

/// The components of an attribute as floats, point after point: 1 or 3 of them a point, as the type
/// says. False for types, codecs and values that can't be read.
bool readPointValues(std::span<const std::byte> grid, const VdbPoints& points, int attribute,
                     int components, std::vector<float>& out, std::string& problem);
/// The voxels that the points lie in.
bool readPointVoxels(std::span<const std::byte> grid, const VdbPoints& points,
                     std::vector<std::array<std::int32_t, 3>>& out, std::string& problem);
/// Whether values of that type and codec can be read as so many floats.
bool pointValuesReadable(const VdbPointAttribute& attribute, int components);

}  // namespace nimbra
