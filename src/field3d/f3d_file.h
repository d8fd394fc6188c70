// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// A Field3D file of either container, its structure read and checked: partitions with their
// mapping, and their layers. Voxels stay in the file until they are asked for.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cache/input_file.h"
#include "field3d/f3d_mapping.h"
#include "field3d/f3d_tree.h"

namespace nimbra {

enum class F3dClass : std::uint8_t { Unknown, Dense, Sparse, Mac };

/// One field. With a `problem` what follows it may be missing.
struct F3dLayer {
    std::string name;
    /// As the file says, "MIPField" included.
    std::string className;
    std::string problem;

    /// How it is stored: that of the finest level for a MIPField.
    F3dClass storage = F3dClass::Unknown;
    /// Half, float or double: the type of one component.
    F3dElement element = F3dElement::Invalid;
    int components = 1;
    F3dBox extents, window;
    /// Of sparse layers: edge = 2^blockOrder.
    int blockOrder = 0;
    std::array<std::int64_t, 3> blocks{0, 0, 0};
    std::uint64_t occupiedBlocks = 0;
    /// Holds the data sets. Lives as long as the file.
    const F3dGroup* body = nullptr;
    std::vector<std::pair<std::string, std::string>> metadata;

    bool readable() const { return problem.empty(); }
    std::uint64_t blockCount() const;
    std::uint64_t voxels() const;
};

struct F3dPartition {
    /// As in the file: "smoke.0".
    std::string diskName;
    F3dMapping mapping;
    std::vector<F3dLayer> layers;
};

class F3dFile {
public:
    /// Opens a regular file and reads its structure. False (and `problem`) for a file that isn't
    /// sound; single layers may have problems of their own in a sound file.
    bool open(const std::string& path);

    /// Takes a container that was opened elsewhere.
    void adopt(std::unique_ptr<F3dContainer> container);

    const std::string& problem() const { return problem_; }
    /// Size of the file; 0 for an adopted container.
    std::uint64_t bytes() const { return file_.size(); }
    bool isHdf5() const { return container_ && container_->isHdf5(); }
    F3dContainer& container() { return *container_; }
    /// Numbers of the writer's version; empty where the file has none.
    const std::vector<int>& version() const { return version_; }
    const std::vector<std::pair<std::string, std::string>>& metadata() const { return metadata_; }
    /// In file order; HDF5 has none: by name and number there.
    const std::vector<F3dPartition>& partitions() const { return partitions_; }

private:
    bool openContainer();
    void readStructure();
    void readPartition(const F3dGroup& group);

    InputFile file_;
    std::unique_ptr<F3dContainer> container_;
    std::string problem_;
    std::vector<int> version_;
    std::vector<std::pair<std::string, std::string>> metadata_;
    std::vector<F3dPartition> partitions_;
};

}  // namespace nimbra
