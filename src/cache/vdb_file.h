// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// One OpenVDB file: its list of grids, and the checked bytes of a grid.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "cache/input_file.h"
#include "cache/vdb_walk.h"

namespace nimbra {

/// A grid with its tree, as it stands in the file, and what the walk found in it. Sound to the last
/// byte when `hasBuffers`.
struct VdbGridBytes {
    int kind = 0;  // TreeKind
    VdbGridHead head;
    VdbTopology topology;
    bool hasBuffers = false;
    std::unique_ptr<std::byte[]> bytes;
    std::uint64_t size = 0;

    std::span<const std::byte> span() const { return {bytes.get(), size}; }
};

struct VdbPoints;

class VdbFile {
public:
    /// Reads the list of grids. False for what isn't a sound file as far as that goes; `problem`
    /// then says why, and `grids` holds those before the damage.
    bool open(const std::string& path);
    const std::string& problem() const { return problem_; }
    std::uint64_t size() const { return file_.size(); }
    const VdbHead& head() const { return head_; }
    /// In file order.
    const std::vector<VdbDescriptor>& grids() const { return grids_; }

    /// The grid whose tree this one shows: itself, or the one that it is an instance of; null when
    /// that isn't in the file.
    const VdbDescriptor* treeOwner(const VdbDescriptor& grid) const;
    /// A grid up to its tree. False: `problem` says why, here and below.
    bool readHead(const VdbDescriptor& grid, VdbGridHead& head, std::string& problem);
    /// A grid with its tree, the buffers if asked for. Takes no more memory than the grid has bytes
    /// in the file, and 8 bytes a leaf.
    bool readTree(const VdbDescriptor& grid, bool withBuffers, VdbGridBytes& out,
                  std::string& problem);
    /// The same for a points grid, and where its points lie in `out`.
    bool readPoints(const VdbDescriptor& grid, VdbGridBytes& out, VdbPoints& points,
                    std::string& problem);

private:
    bool readBytes(std::uint64_t from, std::uint64_t to, VdbGridBytes& out, std::string& problem);
    bool readList(std::uint64_t position);
    void addGrid(VdbDescriptor grid);
    bool readStreamedList(std::uint64_t position);
    bool walkStreamed(BoundedReader& in, VdbDescriptor& grid, std::uint64_t position);

    InputFile file_;
    VdbHead head_;
    std::vector<VdbDescriptor> grids_;
    std::string problem_;
};

}  // namespace nimbra
