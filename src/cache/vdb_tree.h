// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Turns the checked bytes of a grid into a tree of the OpenVDB library.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "cache/process_memory.h"
#include "cache/vdb_file.h"

namespace nimbra {

/// Makes the library ready, once for the process; false when it can't be.
bool prepareVdbLibrary();

/// The grid object of the kind's grid class, as a pointer to void from exactly that class; null
/// (and `problem`) when the values don't unpack or there is no memory; a tree that needs more
/// than memoryOfProcess isn't begun. `bytes` must have its buffers, and is used up: its memory goes
/// while the tree grows.
std::shared_ptr<void> buildVdbTree(const VdbHead& file, const VdbDescriptor& grid,
                                   VdbGridBytes& bytes, std::string& problem);

/// Of the active values of a tree, those of tiles counted once for each cell.
struct VdbStatistics {
    std::array<double, 3> background{};
    /// Of the finite values, component by component; zeros when there are none.
    std::array<double, 3> min{}, max{}, mean{};
    std::int64_t nanCount = 0, infiniteCount = 0;
};
VdbStatistics vdbStatistics(const std::shared_ptr<void>& grid, int kind);

}  // namespace nimbra
