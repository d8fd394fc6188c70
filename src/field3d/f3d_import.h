// Copyright 2026 The Nimbra Authors
// SPDX-License-Identifier: Apache-2.0
//
// From the layers of a Field3D file to the channels of a frame.
#pragma once

#include <string>
#include <vector>

#include "cache/channel_mapping.h"

namespace nimbra {

class NimbraFrameData;

/// Names for mappings, in file order: a scalar layer's own, a vector layer's with "(x)", "(y)" and
/// "(z)" behind it. Of layers of one name the first that can be read counts. False (and `problem`)
/// for a file that can't be read.
bool listF3dChannels(const std::string& path, std::vector<CacheIO::AvailableChannels>& list,
                     std::string& problem);

/// Fills a frame that is as resetHeader leaves it. All channels get one grid, the box around the
/// windows of the mapped layers; the first of them says where it lies, and layers that lie
/// otherwise are left out. Values that aren't finite become 0. With `headerOnly` there are no
/// voxels. False when no mapped layer can be read: `message` then says why, and the frame has no
/// channels. After a success it says what was left out or changed, if anything was.
bool importF3dFile(const std::string& path, NimbraFrameData& frame, bool headerOnly,
                   const std::vector<CacheIO::GridMapping>& mappings, std::string& message);

}  // namespace nimbra
