// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The walk through the nodes and the value chunks of a tree.

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstring>

#include "cache/tree_access.h"
#include "cache/vdb_walk.h"

namespace nimbra {

namespace {

constexpr std::uint32_t kZip = 1, kActiveOnly = 2, kBlosc = 4;
constexpr int kRootLog = 12, kUpperLog = 7, kLeafLog = 3;  // log2 of the cells of a child's edge
constexpr std::int64_t kLeafCells = 512;

/// Sizes in bytes of a value, by the tree's kind.
struct ValueSize {
    int full, half;
};
constexpr ValueSize kValueSizes[] = {{0, 0}, {4, 2}, {8, 2}, {4, 4}, {8, 8}, {12, 6}, {24, 6}};
static_assert(std::size(kValueSizes) == kVec3dTree + 1);

bool isReal(int kind) {
    return kind != kInt32Tree && kind != kInt64Tree;
}

/// A mask of a node, in the walked bytes.
template <int Log>
struct Mask {
    static constexpr int kWords = 1 << (3 * Log - 6);
    std::uint64_t words[kWords];

    bool read(BoundedReader& in) {
        const auto bytes = in.take(sizeof words);
        if (bytes.empty())
            return false;
        std::memcpy(words, bytes.data(), sizeof words);
        return true;
    }
    int count() const {
        int n = 0;
        for (const std::uint64_t w : words)
            n += std::popcount(w);
        return n;
    }
    bool overlaps(const Mask& other) const {
        for (int i = 0; i < kWords; ++i)
            if (words[i] & other.words[i])
                return true;
        return false;
    }
    /// Calls f(position) for each set bit, in rising order, until f answers false.
    template <class F>
    bool forEach(F&& f) const {
        for (int i = 0; i < kWords; ++i)
            for (std::uint64_t w = words[i]; w; w &= w - 1)
                if (!f(i * 64 + std::countr_zero(w)))
                    return false;
        return true;
    }
};

/// Walks the values of nodes. The same for all types: only sizes matter.
class ValueWalk {
public:
    ValueWalk(int kind, const VdbGridHead& grid)
        : compression_(grid.compression),
          full_(static_cast<std::uint64_t>(kValueSizes[kind].full)),
          stored_(grid.halfFloats ? static_cast<std::uint64_t>(kValueSizes[kind].half) : full_),
          emptyIsNothing_(grid.halfFloats && isReal(kind)) {}

    /// Values of a node with `count` places, of which `active` are active; `maskBytes`: size of one
    /// of its masks.
    bool walk(BoundedReader& in, std::uint64_t count, std::uint64_t active,
              std::uint64_t maskBytes) const {
        // What inactive values there are: the background, minus that, or one or two values of their
        // own, and perhaps a mask that tells which; or all values are stored.
        constexpr std::uint8_t kOneValue = 2, kMask = 3, kMaskAndOne = 4, kMaskAndTwo = 5, kAll = 6;
        const auto inactive = in.get<std::uint8_t>();
        if (!in.ok() || inactive > kAll)
            return in.fail();
        if (inactive == kOneValue || inactive == kMaskAndOne)
            in.skip(full_);
        else if (inactive == kMaskAndTwo)
            in.skip(2 * full_);
        if (inactive == kMask || inactive == kMaskAndOne || inactive == kMaskAndTwo)
            in.skip(maskBytes);
        const bool activeOnly = (compression_ & kActiveOnly) && inactive != kAll;
        return walkChunk(in, activeOnly ? active : count);
    }

private:
    bool walkChunk(BoundedReader& in, std::uint64_t values) const {
        const std::uint64_t bytes = values * stored_;
        if (values == 0 && emptyIsNothing_)
            return in.ok();
        if (!(compression_ & (kZip | kBlosc)))
            return in.skip(bytes);
        const auto size = in.get<std::int64_t>();
        const std::uint64_t plain = 0 - static_cast<std::uint64_t>(size);
        if (size <= 0)
            return plain == bytes ? in.skip(bytes) : in.fail();
        const auto packed = in.take(static_cast<std::uint64_t>(size));
        if (!in.ok() || ((compression_ & kBlosc) && !soundBlosc(packed, bytes)))
            return in.fail();
        return true;
    }

    /// The head of a Blosc chunk states both sizes; its decoder believes the compressed one.
    static bool soundBlosc(std::span<const std::byte> packed, std::uint64_t bytes) {
        constexpr std::size_t kHead = 16;
        if (packed.size() < kHead)
            return false;
        std::uint32_t unpackedSize = 0, packedSize = 0;
        std::memcpy(&unpackedSize, packed.data() + 4, 4);
        std::memcpy(&packedSize, packed.data() + 12, 4);
        return unpackedSize == bytes && packedSize == packed.size();
    }

    std::uint32_t compression_;
    std::uint64_t full_, stored_;
    bool emptyIsNothing_;
};

using Place = std::array<std::int32_t, 3>;

/// Gathers what is active.
struct ActiveCells {
    VdbTopology& out;

    void addBox(const Place& low, const Place& high, std::int64_t cells) {
        for (int a = 0; a < 3; ++a) {
            out.low[a] = std::min(out.low[a], low[a]);
            out.high[a] = std::max(out.high[a], high[a]);
        }
        if (__builtin_add_overflow(out.activeVoxels, cells, &out.activeVoxels))
            out.activeVoxels = INT64_MAX;
    }
    void addTile(const Place& low, int log) {
        const std::int32_t last = (1 << log) - 1;
        addBox(low, {low[0] + last, low[1] + last, low[2] + last}, std::int64_t(1) << (3 * log));
    }
    /// Bit x * 64 + y * 8 + z of a leaf's mask is its cell (x, y, z).
    void addLeaf(const Place& origin, const Mask<kLeafLog>& mask) {
        std::uint64_t any = 0;
        int first = 8, last = -1, cells = 0;
        for (int x = 0; x < 8; ++x)
            if (mask.words[x]) {
                any |= mask.words[x];
                first = std::min(first, x);
                last = x;
                cells += std::popcount(mask.words[x]);
            }
        if (!any)
            return;
        std::uint64_t z = any;
        for (const int shift : {32, 16, 8})
            z |= z >> shift;
        const auto column = static_cast<std::uint8_t>(z);
        addBox({origin[0] + first, origin[1] + std::countr_zero(any) / 8,
                origin[2] + std::countr_zero(column)},
               {origin[0] + last, origin[1] + 7 - std::countl_zero(any) / 8,
                origin[2] + 7 - std::countl_zero(column)},
               cells);
    }
};

class TopologyWalk {
public:
    TopologyWalk(BoundedReader& in, int kind, const VdbGridHead& grid, VdbTopology& out)
        : in_(in),
          values_(kind, grid),
          valueBytes_(static_cast<std::uint64_t>(kValueSizes[kind].full)),
          active_{out},
          out_(out) {}

    bool walkRoot() {
        const auto bufferCount = in_.get<std::int32_t>();
        in_.skip(valueBytes_);  // the background
        const auto tiles = in_.get<std::uint32_t>();
        const auto children = in_.get<std::uint32_t>();
        if (!in_.ok() || bufferCount != 1)
            return in_.fail();
        constexpr std::uint64_t kPlaceBytes = 12;
        if (!in_.require(tiles, kPlaceBytes + valueBytes_ + 1))
            return false;
        std::vector<Place> places;
        places.reserve(tiles);
        for (std::uint32_t i = 0; i < tiles; ++i)
            if (!walkRootTile(places))
                return false;
        // A child has two masks and at least the byte in front of its values.
        if (!in_.require(children, kPlaceBytes + 2 * sizeof(Mask<5>) + 1))
            return false;
        return walkRootChildren(children, places) && allDifferent(places);
    }

private:
    /// The leaves of one child of the root.
    struct Branch {
        Place place;
        std::size_t firstLeaf, endLeaf;
    };

    bool readPlace(Place& place) {
        for (std::int32_t& v : place) {
            v = in_.get<std::int32_t>();
            if (v & ((1 << kRootLog) - 1))
                in_.fail();
        }
        return in_.ok();
    }

    bool walkRootTile(std::vector<Place>& places) {
        Place place;
        if (!readPlace(place) || !in_.skip(valueBytes_))
            return false;
        const auto active = in_.get<std::uint8_t>();
        if (!in_.ok() || active > 1)
            return in_.fail();
        places.push_back(place);
        addMemory(0, valueBytes_);
        if (active)
            active_.addTile(place, kRootLog);
        return true;
    }

    bool walkRootChildren(std::uint32_t children, std::vector<Place>& places) {
        std::vector<Branch> branches;
        branches.reserve(children);
        for (std::uint32_t i = 0; i < children; ++i) {
            Branch branch;
            branch.firstLeaf = out_.leafMasks.size();
            if (!readPlace(branch.place) || !walkNode<5>(branch.place))
                return false;
            branch.endLeaf = out_.leafMasks.size();
            branches.push_back(branch);
            places.push_back(branch.place);
        }
        sortLeaves(branches);
        return true;
    }

    /// Buffers come in the order of the places of the root's children, whatever order these have in
    /// the topology.
    void sortLeaves(std::vector<Branch>& branches) {
        const auto before = [](const Branch& a, const Branch& b) { return a.place < b.place; };
        if (std::is_sorted(branches.begin(), branches.end(), before))
            return;
        std::sort(branches.begin(), branches.end(), before);
        reorder(out_.leafMasks, branches);
        if (out_.wantsOrigins)
            reorder(out_.leafOrigins, branches);
    }

    template <class T>
    static void reorder(std::vector<T>& leaves, const std::vector<Branch>& branches) {
        std::vector<T> sorted;
        sorted.reserve(leaves.size());
        for (const Branch& b : branches)
            sorted.insert(sorted.end(), leaves.begin() + std::ptrdiff_t(b.firstLeaf),
                          leaves.begin() + std::ptrdiff_t(b.endLeaf));
        leaves = std::move(sorted);
    }

    bool allDifferent(std::vector<Place>& places) {
        std::sort(places.begin(), places.end());
        if (std::adjacent_find(places.begin(), places.end()) != places.end())
            return in_.fail();
        return true;
    }

    /// A node of 2^Log places along each axis.
    template <int Log>
    bool walkNode(const Place& origin) {
        constexpr int kChildLog = Log == 5 ? kUpperLog : kLeafLog;
        Mask<Log> children, active;
        if (!children.read(in_) || !active.read(in_) || children.overlaps(active))
            return in_.fail();
        constexpr std::uint64_t kPlaces = std::uint64_t(1) << (3 * Log);
        if (!values_.walk(in_, kPlaces, static_cast<std::uint64_t>(active.count()),
                          sizeof(Mask<Log>)))
            return false;
        constexpr std::uint64_t kLeastChild =
            Log == 5 ? 2 * sizeof(Mask<4>) + 1 : sizeof(Mask<kLeafLog>);
        if (!in_.require(static_cast<std::uint64_t>(children.count()), kLeastChild))
            return false;
        addMemory(2 * sizeof(Mask<Log>), kPlaces * std::max<std::uint64_t>(valueBytes_, 8));

        const auto placeOf = [&](int position) {
            constexpr int kBits = (1 << Log) - 1;
            return Place{origin[0] + ((position >> (2 * Log)) << kChildLog),
                         origin[1] + (((position >> Log) & kBits) << kChildLog),
                         origin[2] + ((position & kBits) << kChildLog)};
        };
        active.forEach([&](int position) {
            active_.addTile(placeOf(position), kChildLog);
            return true;
        });
        return children.forEach([&](int position) {
            if constexpr (Log == 5)
                return walkNode<4>(placeOf(position));
            else
                return walkLeaf(placeOf(position));
        });
    }

    bool walkLeaf(const Place& origin) {
        const std::uint64_t position = in_.position();
        Mask<kLeafLog> mask;
        if (!mask.read(in_))
            return false;
        out_.leafMasks.push_back(position);
        if (out_.wantsOrigins)
            out_.leafOrigins.push_back(origin);
        ++out_.leafNodes;
        addMemory(sizeof mask, kLeafCells * valueBytes_);
        active_.addLeaf(origin, mask);
        return true;
    }

    void addMemory(std::uint64_t masks, std::uint64_t values) {
        constexpr std::uint64_t kNodeOverhead = 64;
        out_.bytesInMemory += masks + values + kNodeOverhead;
    }

    BoundedReader& in_;
    ValueWalk values_;
    std::uint64_t valueBytes_;
    ActiveCells active_;
    VdbTopology& out_;
};

}  // namespace

bool walkTopology(BoundedReader& in, int kind, const VdbGridHead& grid, VdbTopology& topology,
                  std::string& problem) {
    if (kind < kFloatTree || kind > kVec3dTree)
        problem = "its type can't become a channel";
    else if (!TopologyWalk(in, kind, grid, topology).walkRoot())
        problem = fmt::format("its tree is damaged near byte {} of the grid", in.position());
    else
        return true;
    return in.fail();
}

bool walkBuffers(BoundedReader& in, int kind, const VdbGridHead& grid, const VdbTopology& topology,
                 std::string& problem) {
    const ValueWalk values(kind, grid);
    // Masks are read again from the same bytes; their places are known to be sound.
    BoundedReader again = in;
    for (const std::uint64_t position : topology.leafMasks) {
        Mask<kLeafLog> first, second;
        again.seek(position);
        if (!first.read(again) || !second.read(in) ||
            std::memcmp(first.words, second.words, sizeof first.words) != 0 ||
            !values.walk(in, kLeafCells, static_cast<std::uint64_t>(second.count()),
                         sizeof second)) {
            problem = fmt::format("its values are damaged near byte {} of the grid", in.position());
            return in.fail();
        }
    }
    return true;
}

}  // namespace nimbra
