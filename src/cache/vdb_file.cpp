// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0

#include "cache/vdb_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <new>

#include "cache/tree_access.h"
#include "cache/vdb_points.h"

namespace nimbra {

namespace {

/// Parses something of unknown length: `parse(reader)` gets more and more bytes from `from` on,
/// until it succeeds or has seen all up to `to`, or more than anything sane takes.
template <class Parse>
bool parseGrowing(InputFile& file, std::uint64_t from, std::uint64_t to, std::string& problem,
                  Parse&& parse) {
    constexpr std::uint64_t kFirst = 16384, kMost = std::uint64_t(64) << 20;
    if (from > to || to > file.size()) {
        problem = "ends too early";
        return false;
    }
    const std::uint64_t all = std::min(to - from, kMost);
    std::vector<std::byte> bytes;
    for (std::uint64_t size = std::min(kFirst, all);; size = std::min(size * 8, all)) {
        bytes.resize(size);
        if (!file.readAt(from, bytes)) {
            problem = file.problem();
            return false;
        }
        BoundedReader in(bytes);
        if (parse(in))
            return true;
        if (size == all)
            return false;
    }
}

/// What is left over says that some size before was wrong.
bool isAtEnd(const BoundedReader& in, std::string& problem) {
    if (in.remaining() == 0)
        return true;
    problem = fmt::format("its values end {} bytes before the grid does", in.remaining());
    return false;
}

// Nodes of a points grid hold numbers of 32 bits.
constexpr int kPointsTopology = kInt32Tree;

// More than anybody writes; work that grows with the square of the count stays small.
constexpr std::uint32_t kMostGrids = 10000;

}  // namespace

bool VdbFile::open(const std::string& path) {
    head_ = {};
    grids_.clear();
    problem_.clear();
    if (!file_.open(path)) {
        problem_ = file_.problem();
        return false;
    }
    std::uint64_t listPosition = 0;
    const bool sound = parseGrowing(file_, 0, file_.size(), problem_, [&](BoundedReader& in) {
        head_ = {};
        const bool walked = walkHead(in, head_, problem_);
        listPosition = in.position();
        return walked;
    });
    if (!sound)
        return false;
    problem_.clear();
    if (head_.gridCount > kMostGrids) {
        problem_ = fmt::format("states {} grids", head_.gridCount);
        return false;
    }
    return head_.hasOffsets ? readList(listPosition) : readStreamedList(listPosition);
}

bool VdbFile::readList(std::uint64_t position) {
    for (std::uint32_t i = 0; i < head_.gridCount; ++i) {
        VdbDescriptor grid;
        std::uint64_t headEnd = 0;
        const bool sound =
            parseGrowing(file_, position, file_.size(), problem_, [&](BoundedReader& in) {
                grid = {};
                const bool walked = walkDescriptor(in, grid, problem_);
                headEnd = position + in.position();
                return walked;
            });
        if (!sound)
            return false;
        if (grid.gridPosition < headEnd || grid.endPosition < grid.gridPosition ||
            grid.endPosition > file_.size()) {
            problem_ =
                grid.endPosition > file_.size()
                    ? fmt::format("ends too early: {} bytes, but grid '{}' goes up to {}",
                                  file_.size(), printable(grid.numberedName()), grid.endPosition)
                    : "its list of grids is damaged";
            return false;
        }
        position = grid.endPosition;
        addGrid(std::move(grid));
    }
    problem_.clear();
    return true;
}

void VdbFile::addGrid(VdbDescriptor grid) {
    grid.label = grid.name();
    for (const VdbDescriptor& other : grids_)
        if (other.label == grid.label)
            grid.label = grid.numberedName();
    grids_.push_back(std::move(grid));
}

bool VdbFile::readStreamedList(std::uint64_t position) {
    VdbGridBytes rest;
    if (!readBytes(position, file_.size(), rest, problem_))
        return false;
    BoundedReader in(rest.span());
    for (std::uint32_t i = 0; i < head_.gridCount; ++i) {
        VdbDescriptor grid;
        if (!walkDescriptor(in, grid, problem_))
            return false;
        // What stands behind a tree of another type can't be found, since nothing says where it is.
        if (!grid.isInstance() && treeKindOfType(grid.treeType) == kDense &&
            !isPointsType(grid.treeType))
            return true;
        if (!walkStreamed(in, grid, position)) {
            // Nor what stands behind damaged points, which are no reason to refuse the rest.
            if (!isPointsType(grid.treeType))
                return false;
            problem_.clear();
            return true;
        }
        addGrid(std::move(grid));
    }
    return true;
}

bool VdbFile::walkStreamed(BoundedReader& in, VdbDescriptor& grid, std::uint64_t position) {
    const int kind = treeKindOfType(grid.treeType);
    VdbGridHead head;
    VdbTopology topology;
    grid.gridPosition = position + in.position();
    bool sound = walkGridHead(in, head, problem_);
    grid.bufferPosition = grid.endPosition = position + in.position();
    if (sound && !grid.isInstance()) {
        const bool points = isPointsType(grid.treeType);
        VdbPoints found;
        topology.wantsOrigins = points;
        sound = walkTopology(in, points ? kPointsTopology : kind, head, topology, problem_);
        grid.bufferPosition = position + in.position();
        sound = sound && (points ? walkPoints(in, topology, found, problem_)
                                 : walkBuffers(in, kind, head, topology, problem_));
        grid.endPosition = position + in.position();
    }
    return sound;
}

const VdbDescriptor* VdbFile::treeOwner(const VdbDescriptor& grid) const {
    if (!grid.isInstance())
        return &grid;
    for (const VdbDescriptor& other : grids_)
        if (other.uniqueName == grid.instanceParent && !other.isInstance() &&
            other.treeType == grid.treeType)
            return &other;
    return nullptr;
}

bool VdbFile::readHead(const VdbDescriptor& grid, VdbGridHead& head, std::string& problem) {
    return parseGrowing(file_, grid.gridPosition, grid.endPosition, problem,
                        [&](BoundedReader& in) {
                            head = {};
                            return walkGridHead(in, head, problem);
                        });
}

bool VdbFile::readBytes(std::uint64_t from, std::uint64_t to, VdbGridBytes& out,
                        std::string& problem) {
    out.size = 0;
    out.bytes.reset();
    if (from > to || to > file_.size()) {
        problem = "ends too early";
        return false;
    }
    out.bytes.reset(new (std::nothrow) std::byte[to - from]);
    if (!out.bytes) {
        problem = fmt::format("needs {} bytes of memory", to - from);
        return false;
    }
    out.size = to - from;
    if (file_.readAt(from, {out.bytes.get(), out.size}))
        return true;
    problem = file_.problem();
    return false;
}

bool VdbFile::readTree(const VdbDescriptor& grid, bool withBuffers, VdbGridBytes& out,
                       std::string& problem) {
    out.kind = treeKindOfType(grid.treeType);
    out.hasBuffers = false;
    const auto readUpTo = [&](std::uint64_t end) {
        out.head = {};
        out.topology = {};
        if (!readBytes(grid.gridPosition, end, out, problem))
            return false;
        BoundedReader in(out.span());
        return walkGridHead(in, out.head, problem) &&
               walkTopology(in, out.kind, out.head, out.topology, problem) &&
               (!withBuffers || (walkBuffers(in, out.kind, out.head, out.topology, problem) &&
                                 isAtEnd(in, problem)));
    };
    // The place of the buffers is a hint only: the library itself doesn't follow it.
    const bool hinted = !withBuffers && grid.bufferPosition >= grid.gridPosition &&
                        grid.bufferPosition < grid.endPosition;
    if (!(hinted && readUpTo(grid.bufferPosition)) && !readUpTo(grid.endPosition))
        return false;
    problem.clear();
    out.hasBuffers = withBuffers;
    return true;
}

bool VdbFile::readPoints(const VdbDescriptor& grid, VdbGridBytes& out, VdbPoints& points,
                         std::string& problem) {
    const VdbDescriptor* const owner = treeOwner(grid);
    if (!owner) {
        problem = "shares the points of a grid that isn't there";
        return false;
    }
    out.kind = kDense;
    out.head = {};
    out.topology = {};
    out.topology.wantsOrigins = true;
    out.hasBuffers = false;
    if (!readBytes(owner->gridPosition, owner->endPosition, out, problem))
        return false;
    BoundedReader in(out.span());
    out.hasBuffers = walkGridHead(in, out.head, problem) &&
                     walkTopology(in, kPointsTopology, out.head, out.topology, problem) &&
                     walkPoints(in, out.topology, points, problem) && isAtEnd(in, problem);
    return out.hasBuffers;
}

}  // namespace nimbra
