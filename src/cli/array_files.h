// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// Values of a frame as files of other programs: NumPy arrays and PLY points. All are written beside
// their place and renamed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cache/prt_group.h"
#include "host/abort_flag.h"

namespace nimbra::cli {

/// How the writing of a file ended.
enum class FileResult { Written, Failed, Aborted };

/// A loaded grid channel as an array of floats, indexed [z][y][x].
FileResult writeGridNpy(const std::string& path, const GridChannelProxy<float>& channel,
                        const host::AbortFlag& abort, std::string& error);

/// Whether a group has a channel, stored or in the grid, and it expands.
bool canDeliver(NimbraFrameData::PGroup& group, int channel);

/// A particle channel, indexed [particle], or [particle][component] where it has several: floats;
/// 64-bit integers for IDs; 32-bit words for what has no meaning. The channel must be one that
/// canDeliver holds for.
FileResult writeParticleNpy(const std::string& path, NimbraFrameData::PGroup& group, int channel,
                            const host::AbortFlag& abort, std::string& error);

/// All channels of a group as vertices of a binary PLY file: x y z, vx vy vz, size, age, red green
/// blue, id (a double: exact up to 2^53), viscosity and channel_N. Positions as stored: in cells.
/// Channels that don't expand are left out.
FileResult writeParticlePly(const std::string& path, NimbraFrameData::PGroup& group,
                            const host::AbortFlag& abort, std::string& error);

/// Bytes in front of an array's values. `type` is as "<f4".
std::string npyHeader(const std::string& type, const std::vector<std::int64_t>& shape);

}  // namespace nimbra::cli
