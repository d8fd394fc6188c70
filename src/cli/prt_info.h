// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// What a PRT particle file holds.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "cache/prt_file.h"

namespace nimbra::cli {

struct PrtChannelInfo {
    std::string name, type;
    int arity = 0, offset = 0;
    bool used = false;  // one that the loader reads
    /// Of the finite values of all components; meaningless when there are none.
    bool hasValues = false;
    double min = 0, max = 0, mean = 0;
    std::int64_t notFinite = 0;
};

/// One file. Without `readable` only `problem` and what comes before the damage are known.
struct PrtFileInfo {
    std::string path;
    bool readable = false;
    std::string problem;
    std::uint64_t bytes = 0;
    PrtIO::PrtHeader header;
    std::int32_t count = 0, recordSize = 0;
    std::int64_t wholeParticles = 0;  // whose records the stream holds
    std::vector<PrtChannelInfo> channels;
    bool hasBounds = false;
    std::array<double, 3> low{}, high{};  // of the positions
};

/// Without `values` no ranges and bounds are found. Never throws, whatever the bytes.
PrtFileInfo readPrtInfo(const std::string& path, bool values = true);
std::string infoText(const PrtFileInfo& file);
std::string infoJson(const PrtFileInfo& file);

}  // namespace nimbra::cli
