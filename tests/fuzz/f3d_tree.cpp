// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Fuzz target: what the HDF5 helper says of a file, in any bytes. All layers that come out of it
// are read, from data sets that hold whatever is asked for.
#include <algorithm>
#include <memory>

#include "field3d/f3d_file.h"
#include "field3d/f3d_voxels.h"
#include "field3d/tree_message.h"

namespace {

class SaidTree : public nimbra::F3dContainer {
public:
    bool take(const std::uint8_t* data, std::size_t size) {
        return nimbra::unpackTree({reinterpret_cast<const std::byte*>(data), size}, root_);
    }
    bool isHdf5() const override { return true; }
    bool read(const nimbra::F3dDataset& dataset, std::uint64_t firstRow, std::uint64_t count,
              std::uint64_t rowBytes, const nimbra::F3dSink& sink) override {
        if (rowBytes != dataset.rowBytes || firstRow + count > dataset.rows)
            return fail("has other rows");
        std::vector<std::byte> row(rowBytes, std::byte(1));
        for (std::uint64_t i = 0; i < count; ++i)
            sink(row);
        return true;
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    auto tree = std::make_unique<SaidTree>();
    if (!tree->take(data, size))
        return 0;
    nimbra::F3dFile file;
    file.adopt(std::move(tree));
    for (const nimbra::F3dPartition& p : file.partitions())
        for (const nimbra::F3dLayer& layer : p.layers) {
            constexpr std::uint64_t kMost = 1 << 20;
            if (!layer.readable() || layer.voxels() > kMost)
                continue;
            std::vector<float> voxels(layer.voxels());
            std::string problem;
            nimbra::readVoxels(file, layer,
                               {{voxels.data(), layer.window, layer.components - 1, 1}}, problem);
        }
    return 0;
}
