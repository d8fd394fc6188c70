// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// The HDF5 container. The library of that name can be brought down by damaged files, so it works in
// a helper process with little memory and little time, which hands over plain trees and plain rows.
#pragma once

#include "cache/input_file.h"
#include "field3d/f3d_tree.h"
#include "field3d/helper_process.h"
#include "field3d/tree_message.h"

namespace nimbra {

class Hdf5File : public F3dContainer {
public:
    /// Where the signature stands: the start, or behind a user block of 512 bytes or a doubling of
    /// that. False for a file that has none.
    static bool hasSignature(InputFile& file);

    /// Starts the helper on the file. False (and `problem`) when it finds the file unsound or dies.
    bool open(InputFile& file);

    bool isHdf5() const override { return true; }
    bool read(const F3dDataset& dataset, std::uint64_t firstRow, std::uint64_t count,
              std::uint64_t rowBytes, const F3dSink& sink) override;

private:
    bool receiveTree();
    bool receiveText(std::uint64_t bytes);
    bool gone();

    HelperProcess helper_;
    std::vector<std::byte> piece_;
};

}  // namespace nimbra
