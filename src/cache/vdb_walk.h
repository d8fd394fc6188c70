// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A walk over the structure of an OpenVDB file, byte for byte, before the library of that name sees
// it: the library trusts counts and sizes, and damaged ones make it loop, write out of bounds or
// ask for all the memory there is. What passes here is sound: every count is borne out by bytes
// that are there, every node lies where it says, every chunk has the size that its reader expects.
//
// Layout, little-endian, format versions 222 to 224 ("text" is a uint32 length and the bytes):
//
//   head         int64 0x56444220, uint32 format, uint32 library major, minor, uint8 has offsets (0
//                or 1), 36 bytes UUID, metadata, int32 count of grids
//   metadata     uint32 count; each: text name, text type, uint32 size, the value
//   descriptor   text unique name (copies have 0x1E and a number behind it), text type of the tree
//                (half floats: with "_HalfFloat" behind it), text name of the grid whose tree this
//                one shares (or empty), int64 position of the grid, of its buffers, of its end
//   grid         uint32 compression (1 zip, 2 active values only, 4 Blosc), metadata, transform; if
//                the tree isn't shared: topology, buffers. The next descriptor follows at the end
//   transform    text type of the map, doubles; a perspective one ends with another transform
//   topology     int32 1, background, uint32 tiles, uint32 children;
//                tile: 3 int32 origin, value, uint8 active (0 or 1); child: 3 int32 origin, node
//   node         (32^3, in it 16^3) children mask, values mask, values, the children in mask order
//   leaf         (8^3) values mask
//   buffers      for each leaf, its parents in order of their origins: values mask again, values
//   values       uint8 0 to 6 what inactive values there are, 0 to 2 of them, perhaps a mask that
//                tells them apart, then the chunk: all values, or the active ones
//   chunk        plain; or int64 n: n > 0 compressed bytes, n <= 0 -n plain ones. Half floats
//                have 2 bytes a number; a chunk of no half floats is nothing at all
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "cache/bounded_reader.h"

namespace nimbra {

/// Format versions that the walk knows.
inline constexpr std::uint32_t kOldestVdbFormat = 222, kNewestVdbFormat = 224;

/// One entry of a file's or a grid's metadata.
struct VdbMetadata {
    std::string name;
    std::string type;
    std::string value;  // the raw bytes

    /// The value of a number, in whole; false for other types and for what isn't finite.
    bool asInt(std::int64_t& out) const;
    /// The values of a vector of three, in whole; false for other types.
    bool asInt3(std::array<std::int64_t, 3>& out) const;
    /// For listings.
    std::string text() const;
};

const VdbMetadata* findMetadata(const std::vector<VdbMetadata>& list, const char* name);

/// Where a grid stands in its file.
struct VdbDescriptor {
    std::string uniqueName;
    std::string treeType;  // without the mark of half floats
    bool halfSuffix = false;
    std::string instanceParent;  // unique name of the grid whose tree this one shares
    std::uint64_t gridPosition = 0, bufferPosition = 0, endPosition = 0;
    /// What users call it, set with the list of grids: the name; the numbered one where an earlier
    /// grid has that name.
    std::string label;

    bool isInstance() const { return !instanceParent.empty(); }
    /// "density", also of a copy.
    std::string name() const;
    /// "density[1]" of a copy with that number, else the name.
    std::string numberedName() const;
};

struct VdbHead {
    std::uint32_t formatVersion = 0;
    std::uint32_t libraryMajor = 0, libraryMinor = 0;
    bool hasOffsets = false;
    std::vector<VdbMetadata> metadata;
    std::uint32_t gridCount = 0;
};

/// A map from index space to the world. Points are rows: world = index * matrix.
struct VdbTransform {
    std::string type;
    bool linear = true;
    /// Axis vectors, then the place of index (0, 0, 0). Of a perspective map: its linear part.
    std::array<std::array<double, 3>, 4> toWorld{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}};

    /// Lengths of the axis vectors.
    std::array<double, 3> voxelSize() const;
};

/// A grid up to its tree.
struct VdbGridHead {
    std::uint32_t compression = 0;
    std::vector<VdbMetadata> metadata;
    bool halfFloats = false;
    VdbTransform transform;
    /// Where in the walked bytes the name of a type starts whose values may hold counts of their
    /// own that the library would follow. With another first letter they are plain bytes to it.
    std::vector<std::uint64_t> unsafeMetadata;
};

/// What the structure of a tree tells.
struct VdbTopology {
    /// Active box, inclusive; low > high when nothing is active.
    std::array<std::int32_t, 3> low{INT32_MAX, INT32_MAX, INT32_MAX};
    std::array<std::int32_t, 3> high{INT32_MIN, INT32_MIN, INT32_MIN};
    std::int64_t activeVoxels = 0;
    std::int64_t leafNodes = 0;
    std::uint64_t bytesInMemory = 0;
    /// Positions of the leaves' masks in the walked bytes, in the order of the buffers.
    std::vector<std::uint64_t> leafMasks;
    /// Lowest cells of the leaves in the same order, if asked for before the walk.
    bool wantsOrigins = false;
    std::vector<std::array<std::int32_t, 3>> leafOrigins;

    bool empty() const { return low[0] > high[0]; }
};

/// Number of a tree type in TreeKind, 0 for those that can't become a channel.
int treeKindOfType(const std::string& treeType);
/// "float" of "Tree_float_5_4_3"; the type itself where it isn't made like that.
std::string valueTypeOf(const std::string& treeType);

/// A text behind its length in 32 bits; false (and failed) for one that nobody writes.
bool readText(BoundedReader& in, std::string& out);

// Each walk reads on from where `in` stands and leaves it behind what it read. False: `problem`
// says what is wrong.
bool walkHead(BoundedReader& in, VdbHead& head, std::string& problem);
bool walkDescriptor(BoundedReader& in, VdbDescriptor& descriptor, std::string& problem);
bool walkGridHead(BoundedReader& in, VdbGridHead& grid, std::string& problem);
/// `kind`: 1 to 6.
bool walkTopology(BoundedReader& in, int kind, const VdbGridHead& grid, VdbTopology& topology,
                  std::string& problem);
bool walkBuffers(BoundedReader& in, int kind, const VdbGridHead& grid, const VdbTopology& topology,
                 std::string& problem);

}  // namespace nimbra
